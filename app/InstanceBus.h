#pragma once
// The server's name on the session bus, and the call by which a second server brings the
// first one forward.
#include <QObject>
#include <functional>

namespace vq {

inline constexpr const char* kBusName = "com.halvenor.OrvantisServer";
inline constexpr const char* kBusPath = "/ServerTask";
inline constexpr const char* kExtrasInterface = "com.halvenor.OrvantisServer.Extras";

class InstanceBus : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.halvenor.OrvantisServer.Extras")
public:
    // Takes the bus name; false when there is no session bus or the name is taken.
    bool Register();
    // Asks the running server to bring its window forward; false when nobody answered.
    static bool AskRunningServerToShow();
    // What brings the window forward; none without a window.
    void SetBringForward(std::function<void()> bringForward) { bringForward_ = std::move(bringForward); }

public Q_SLOTS:
    // Brings the main window forward; a headless server has none and only answers.
    bool ShowWindow();

private:
    std::function<void()> bringForward_;
};

}  // namespace vq
