// Questions to the X server and to the window manager. They go over the toolkit's own connection, so they are answered
// after whatever the toolkit has asked for before. Stage calls this on the GUI thread.
#include "window/Display.h"

#include <QAbstractNativeEventFilter>
#include <QGuiApplication>
#include <QRect>
#include <QTest>
#include <QWidget>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <xcb/xcb.h>

namespace zul::test {

namespace {

constexpr int kEventType = 0x7f; // without the flag that another client has sent it

struct Free {
    void operator()(void* reply) const { std::free(reply); }
};
template <class Reply>
using Answer = std::unique_ptr<Reply, Free>; // null: an error instead, as of a window that has gone

xcb_connection_t* server() {
    return qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
}

xcb_window_t root() {
    return xcb_setup_roots_iterator(xcb_get_setup(server())).data->root;
}

Answer<xcb_get_geometry_reply_t> geometryOf(xcb_window_t window) {
    return Answer<xcb_get_geometry_reply_t>(
        xcb_get_geometry_reply(server(), xcb_get_geometry(server(), window), nullptr));
}

bool isViewable(xcb_window_t window) {
    const Answer<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(server(), xcb_get_window_attributes(server(), window), nullptr));
    return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
}

xcb_atom_t atomNamed(std::string_view name) {
    const Answer<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(
        server(), xcb_intern_atom(server(), 0, static_cast<std::uint16_t>(name.size()), name.data()), nullptr));
    return atom ? atom->atom : xcb_atom_t{XCB_ATOM_NONE};
}

// A hidden window that the window manager is asked about. Notes the answer when the toolkit handles that event.
class Probe final : public QAbstractNativeEventFilter {
  public:
    Probe() {
        const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_create_window(server(), XCB_COPY_FROM_PARENT, _window, root(), 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                          XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
        qGuiApp->installNativeEventFilter(this);
    }
    ~Probe() override { xcb_destroy_window(server(), _window); }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    void askManager() const {
        xcb_client_message_event_t question{};
        question.response_type = XCB_CLIENT_MESSAGE;
        question.format = 32; // bits
        question.window = _window;
        question.type = atomNamed("_NET_REQUEST_FRAME_EXTENTS");
        xcb_send_event(server(), /*propagate=*/0, root(),
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&question));
        xcb_flush(server());
    }
    bool hasAnswer() const { return _hasAnswer; }

    bool nativeEventFilter(const QByteArray&, void* message, qintptr*) override {
        const auto* const event = static_cast<const xcb_property_notify_event_t*>(message);
        if ((event->response_type & kEventType) != XCB_PROPERTY_NOTIFY || event->window != _window) return false;
        _hasAnswer = true;
        return true;
    }

  private:
    const xcb_window_t _window = xcb_generate_id(server());
    bool _hasAnswer = false;
};

} // namespace

bool isWholeOnScreen(const QWidget& window) {
    const auto id = static_cast<xcb_window_t>(window.internalWinId());
    if (!isViewable(id)) return false;
    const auto geometry = geometryOf(id); // its place is that in the window manager's own window
    const auto screen = geometryOf(root());
    if (!geometry || !screen) return false;
    const Answer<xcb_translate_coordinates_reply_t> place(
        xcb_translate_coordinates_reply(server(), xcb_translate_coordinates(server(), id, root(), 0, 0), nullptr));
    return place && QRect(0, 0, screen->width, screen->height)
                        .contains(QRect(place->dst_x, place->dst_y, geometry->width, geometry->height));
}

bool catchUpWithManager(std::chrono::milliseconds limit) {
    // The manager takes its events in their order, and so does the server.
    const Probe probe;
    probe.askManager();
    return QTest::qWaitFor([&] { return probe.hasAnswer(); }, static_cast<int>(limit.count()));
}

} // namespace zul::test
