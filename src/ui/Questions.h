// The alerts that the window itself raises: messages and questions with two buttons. Made on the GUI thread and passed
// to AlertPresenter.
#pragma once

#include "Classes/Outlets.h"

#include <QString>
#include <functional>
#include <string>

namespace zul::ui {

/// A message with the one button "OK", which Escape presses, too. Both texts are in the operator's language.
AlertDescription messageAlert(std::string title, std::string message);

/// The texts of a question, all in the operator's language.
struct Question {
    std::string title;
    std::string message;
    std::string decline; // the first button: the default button, and the one that Escape presses
    std::string accept;  // the second button
};
/// A question with two buttons; whenAccepted is called on the main queue if the operator presses the second one.
AlertDescription questionAlert(Question question, std::function<void()> whenAccepted);

// What a notice and a refusal both say while only the sample firmware files are there, in the operator's language.
/// The firmware files in use are not the vendor's.
QString samplesInUse();
/// What the operator can do about that.
QString useVendorFiles();

} // namespace zul::ui
