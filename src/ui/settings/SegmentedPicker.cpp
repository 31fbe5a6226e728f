#include "ui/settings/SegmentedPicker.h"

#include <QEvent>
#include <QPainter>
#include <QRadioButton>
#include <QSignalBlocker>
#include <algorithm>
#include <utility>

#include "ui/WindowStyle.h"

namespace nulo {
namespace {

constexpr int trackRadius = 7;
constexpr int trackPadding = 2;
constexpr int titleMargin = 8;

class SegmentButton final : public QRadioButton {
  public:
    explicit SegmentButton(const QString& title) : QRadioButton(title) {
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        setAttribute(Qt::WA_Hover);
    }
    QSize sizeHint() const override {
        return {fontMetrics().horizontalAdvance(text()) + 2 * titleMargin,
                fontMetrics().height() + 10};
    }
    QSize minimumSizeHint() const override { return {60, sizeHint().height()}; }

  protected:
    bool event(QEvent* event) override {
        if (event->type() == QEvent::ToolTip)
            setToolTip(width() < sizeHint().width() ? text() : QString());
        return QRadioButton::event(event);
    }
    bool hitButton(const QPoint& position) const override { return rect().contains(position); }

    void paintEvent(QPaintEvent*) override {
        const WindowColors colors = windowColors();
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        if (isChecked() || hasFocus() || underMouse()) {
            painter.setBrush(isChecked() ? colors.raised : QColor(Qt::transparent));
            painter.setPen(hasFocus() ? QPen(colors.focus, 2) : QPen(colors.border, 1));
            painter.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), trackRadius - 2,
                                    trackRadius - 2);
        }
        painter.setPen(isChecked() ? colors.text : colors.secondaryText);
        painter.drawText(rect(), Qt::AlignCenter,
                         fontMetrics().elidedText(text(), Qt::ElideRight, width() - titleMargin));
    }
};

}  // namespace

SegmentedPicker::SegmentedPicker(std::vector<Segment> segments, QWidget* parent)
    : QWidget(parent),
      m_segments(std::move(segments)),
      m_layout(new QBoxLayout(QBoxLayout::LeftToRight, this)) {
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    m_layout->setContentsMargins(trackPadding, trackPadding, trackPadding, trackPadding);
    m_layout->setSpacing(trackPadding);
    for (const Segment& segment : m_segments) {
        auto* button = new SegmentButton(segment.title);
        m_group.addButton(button, m_layout->count());
        m_layout->addWidget(button);
    }
    setValue({});
    connect(&m_group, &QButtonGroup::idToggled, this, [this](int id, bool checked) {
        const auto changed = onValueChanged;
        if (checked && changed)
            changed(m_segments[static_cast<std::size_t>(id)].value);
    });
}

void SegmentedPicker::setValue(const std::string& value) {
    const QSignalBlocker blocker(&m_group);
    m_group.setExclusive(false);  // an exclusive group would keep the last one chosen
    for (int row = 0; QAbstractButton* button = m_group.button(row); ++row)
        button->setChecked(m_segments[static_cast<std::size_t>(row)].value == value);
    m_group.setExclusive(true);
    // The group takes the others out of the Tab key's way only once one of them has had the focus.
    const QAbstractButton* entered = m_group.checkedButton();
    for (QAbstractButton* button : m_group.buttons())
        button->setFocusPolicy(!entered || button == entered ? Qt::StrongFocus : Qt::ClickFocus);
}

QSize SegmentedPicker::sizeHint() const {
    int widest = 0;
    for (const QAbstractButton* button : m_group.buttons())
        widest = std::max(widest, button->sizeHint().width());
    return {widest + 2 * trackPadding, m_layout->totalSizeHint().height()};
}

bool SegmentedPicker::event(QEvent* event) {
    if (event->type() == QEvent::Resize || event->type() == QEvent::LayoutRequest)
        chooseDirection();
    return QWidget::event(event);
}

void SegmentedPicker::chooseDirection() {
    int wanted = trackPadding;
    for (const QAbstractButton* button : m_group.buttons())
        wanted += button->sizeHint().width() + trackPadding;
    const auto direction = wanted <= width() ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom;
    if (direction == m_layout->direction())
        return;
    m_layout->setDirection(direction);
    m_layout->update();
}

void SegmentedPicker::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(windowColors().fill);
    painter.drawRoundedRect(rect(), trackRadius, trackRadius);
}

}  // namespace nulo
