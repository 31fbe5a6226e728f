#pragma once

#include <string>

namespace nulo {

/// A failure in the words of the user interface: what happened, then why and what to do.
struct Notice {
    std::string title;
    std::string text;  // whole sentences; may quote what other programs said

    bool operator==(const Notice&) const = default;
};

/// What the desktop shows of the program for a few seconds, wherever the user is. Main thread.
class Notifications {
  public:
    virtual ~Notifications() = default;
    /// Shows the notice, in place of one that is still shown. Returns at once; a desktop that shows
    /// no notices is no error.
    virtual void show(const Notice& notice) = 0;
};

}  // namespace nulo
