#pragma once

#include "ui/AlertContent.h"

namespace nulo {

/// Says that the permission is missing; the first button leads to where it is given.
AlertContent accessibilityAlert();

/// Offers to start the program at every login; the first button accepts.
AlertContent loginItemOffer();

}  // namespace nulo
