#pragma once

#include <QWidget>
#include <functional>

namespace nulo {

/// Asks, over `parent`'s window, whether the mode of that name is to be deleted; "Annuler" is what
/// Return and Escape mean. Returns at once: the program goes on while the question is open.
/// `onConfirmed` is not called once `parent` is gone.
void confirmDeletion(QWidget* parent, const std::string& modeName,
                     std::function<void()> onConfirmed);

}  // namespace nulo
