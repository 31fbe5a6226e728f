#pragma once

#include <QAbstractButton>
#include <QBoxLayout>
#include <QButtonGroup>
#include <QString>
#include <QWidget>
#include <functional>
#include <string>
#include <vector>

namespace nulo {

/// A choice of one of a few values, side by side in one control, or one below the other where it is
/// too narrow for that. The arrow keys go from one to the other; for a screen reader they are radio
/// buttons. Main thread.
class SegmentedPicker final : public QWidget {
  public:
    struct Segment {
        QString title;
        std::string value;
    };
    SegmentedPicker(std::vector<Segment> segments, QWidget* parent);

    /// Chooses the segment that has the value; none when no segment has it. Does not call
    /// onValueChanged.
    void setValue(const std::string& value);
    /// The user chose another segment.
    std::function<void(const std::string& value)> onValueChanged;

    /// The button that a label gives the focus to.
    QWidget& firstButton() { return *m_group.button(0); }

    /// The picker asks for the width of the longest title only; its segments go side by side where
    /// there is room.
    QSize sizeHint() const override;

  protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

  private:
    void chooseDirection();

    std::vector<Segment> m_segments;
    QBoxLayout* m_layout;
    QButtonGroup m_group;  // ids are rows of m_segments
};

}  // namespace nulo
