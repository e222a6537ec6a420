#pragma once

#include <QLabel>

namespace zrnview
{

/// One line of plain text that gives way: where it does not fit, "…" stands for a part of it, and
/// the tool tip holds all of it.
class ElidedLabel : public QLabel
{
    Q_OBJECT

public:
    /// @param elided the part that is left out first
    explicit ElidedLabel(Qt::TextElideMode elided, QWidget* parent = nullptr);

    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Qt::TextElideMode m_elided;
};

} // namespace zrnview
