#include "ui/settings/SegmentedPicker.h"

#include <QHBoxLayout>
#include <QPainter>
#include <QRadioButton>
#include <QSignalBlocker>
#include <utility>

#include "ui/settings/SettingsStyle.h"

namespace nulo {
namespace {

constexpr int trackRadius = 7;
constexpr int trackPadding = 2;

class SegmentButton final : public QRadioButton {
  public:
    explicit SegmentButton(const QString& title) : QRadioButton(title) {
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        setAttribute(Qt::WA_Hover);
    }
    QSize sizeHint() const override {
        return {fontMetrics().horizontalAdvance(text()) + 24, fontMetrics().height() + 10};
    }
    QSize minimumSizeHint() const override { return sizeHint(); }

  protected:
    bool hitButton(const QPoint& position) const override { return rect().contains(position); }

    void paintEvent(QPaintEvent*) override {
        const SettingsColors colors = settingsColors();
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        if (isChecked() || hasFocus() || underMouse()) {
            painter.setBrush(isChecked() ? colors.raised : QColor(Qt::transparent));
            painter.setPen(hasFocus() ? QPen(colors.accent, 2) : QPen(colors.border, 1));
            painter.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), trackRadius - 2,
                                    trackRadius - 2);
        }
        painter.setPen(isChecked() ? colors.text : colors.secondaryText);
        painter.drawText(rect(), Qt::AlignCenter, text());
    }
};

}  // namespace

SegmentedPicker::SegmentedPicker(std::vector<Segment> segments, QWidget* parent)
    : QWidget(parent), m_segments(std::move(segments)) {
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(trackPadding, trackPadding, trackPadding, trackPadding);
    layout->setSpacing(trackPadding);
    for (const Segment& segment : m_segments) {
        auto* button = new SegmentButton(segment.title);
        m_group.addButton(button, static_cast<int>(layout->count()));
        layout->addWidget(button);
    }
    connect(&m_group, &QButtonGroup::idToggled, this, [this](int id, bool checked) {
        const auto changed = onValueChanged;
        if (checked && changed)
            changed(m_segments[static_cast<std::size_t>(id)].value);
    });
}

void SegmentedPicker::setValue(const std::string& value) {
    const QSignalBlocker blocker(&m_group);
    m_group.setExclusive(false);  // or the last chosen one could not be let go of
    for (int row = 0; QAbstractButton* button = m_group.button(row); ++row)
        button->setChecked(m_segments[static_cast<std::size_t>(row)].value == value);
    m_group.setExclusive(true);
}

void SegmentedPicker::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(settingsColors().fill);
    painter.drawRoundedRect(rect(), trackRadius, trackRadius);
}

}  // namespace nulo
