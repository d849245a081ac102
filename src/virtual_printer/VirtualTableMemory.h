// The colour tables stored in a virtual printer. Not thread-safe: part of its printer.
#pragma once

#include "platform/foundation/Data.h"
#include "virtual_printer/VirtualModels.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zul {

class VirtualTableMemory {
  public:
    /// version: of all tables; empty: the model's default.
    explicit VirtualTableMemory(const VirtualModel& model, const std::string& version = {});

    /// Removes all tables, as the host orders before it writes new ones.
    void clear();
    /// Sets the name of the next table; trailing zero bytes are padding.
    void setName(const Data& record);
    /// Stores the contents under the name set last.
    void write(const Data& contents);

    /// The reply to a query for a version or checksum; nullopt for a query that this model does not know. media is the
    /// payload's text: "0001", "0003" or empty.
    std::optional<std::string> answerTo(const std::string& command, const std::string& media) const;

    /// Names in the order written since the last clear().
    const std::vector<std::string>& writtenNames() const { return _writtenNames; }

  private:
    struct Table {
        std::string version = "0000";
        std::uint16_t checksum = 0;
    };

    const VirtualModel& _model;
    std::map<std::string, Table> _tables; // by "600" or "PP600"
    std::string _last;                    // key of the table written last
    std::string _name;
    std::vector<std::string> _writtenNames;
};

} // namespace zul
