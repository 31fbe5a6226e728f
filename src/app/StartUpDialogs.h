#pragma once

#include "ui/AlertContent.h"

namespace nulo {

/// The first button leads to where the permission is given.
AlertContent accessibilityAlert();

/// The first button accepts.
AlertContent loginItemOffer();

}  // namespace nulo
