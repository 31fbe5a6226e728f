#pragma once

#include <functional>
#include <string>

namespace nulo {

/// A failure in the words of the user interface: what happened, then why and what to do.
struct Notice {
    std::string title;
    std::string text;  // whole sentences; may quote what other programs said

    bool operator==(const Notice&) const = default;
};

/// Something that the user can have done from a notice.
struct NoticeAction {
    std::string label;
    std::function<void()> run;  // on the main thread; it may show another notice
};

/// What the desktop shows of the program for a few seconds, wherever the user is. Main thread.
class Notifications {
  public:
    virtual ~Notifications() = default;
    /// Shows the notice, in place of one that is still shown. Returns at once; a desktop that shows
    /// no notices is no error.
    virtual void show(const Notice& notice) = 0;
    /// As show(), with a button on desktops that have any. It is of use until another notice is
    /// shown.
    virtual void offer(const Notice& notice, NoticeAction action) = 0;
    /// Takes a notice of offer() away when it is the last that was shown.
    virtual void withdrawOffer() = 0;
};

}  // namespace nulo
