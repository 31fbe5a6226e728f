#pragma once

namespace nulo {

/// What the session bus offers.
struct DesktopFacts {
    bool hasBus = false;
    bool hasTray = false;           // that asks over the bus; one of the old X11 kind is not seen
    bool hasNotifications = false;  // running, or started by the bus when first used
    bool nuloRuns = false;
};

}  // namespace nulo
