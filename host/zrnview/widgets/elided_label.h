#pragma once

#include <QLabel>

namespace zrnview
{

/// One line of plain text that gives way: where it does not fit it ends in "…", and the tool tip
/// holds all of it.
class ElidedLabel : public QLabel
{
    Q_OBJECT

public:
    using QLabel::QLabel;

    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace zrnview
