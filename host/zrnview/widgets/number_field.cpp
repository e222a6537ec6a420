#include "zrnview/widgets/number_field.h"

#include <QKeyEvent>
#include <QLineEdit>
#include <QRegularExpression>

#include <algorithm>

namespace zrnview
{

NumberField::NumberField(QWidget* parent)
    : QSpinBox(parent)
{
    setKeyboardTracking(false);
    connect(lineEdit(), &QLineEdit::textEdited, this, &NumberField::edited);
}

QValidator::State NumberField::validate(QString& text, int& position) const
{
    // Characters that are dropped while they are typed would leave another number.
    const QValidator::State state = QSpinBox::validate(text, position);
    return state == QValidator::Invalid ? QValidator::Intermediate : state;
}

void NumberField::fixup(QString& text) const
{
    const QString typed = withoutSuffix(text);
    const std::optional<double> number = numberIn(typed);
    if (!number) {
        emit limited(tr("“%1” is no whole number.").arg(typed));
        return;
    }
    const double used = std::clamp<double>(*number, minimum(), maximum());
    text = shown(static_cast<int>(used));
    if (used != *number) {
        const auto told = [this](double value) { return locale().toString(value, 'f', 0); };
        emit limited(tr("%1 is outside of %2 to %3; %4 was taken.")
                         .arg(told(*number), told(minimum()), told(maximum()), told(used)));
    }
}

void NumberField::keyPressEvent(QKeyEvent* event)
{
    switch (event->key()) {
    case Qt::Key_Escape:
        lineEdit()->setText(shown(value()));
        emit cancelled();
        emit finished();
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        QSpinBox::keyPressEvent(event);
        event->accept();
        emit finished();
        return;
    default:
        QSpinBox::keyPressEvent(event);
    }
}

QString NumberField::withoutSuffix(QString text) const
{
    const QString unit = suffix().trimmed();
    text = text.trimmed();
    if (!unit.isEmpty() && text.endsWith(unit)) {
        text.chop(unit.size());
    }
    return text.trimmed();
}

std::optional<double> NumberField::numberIn(QString text) const
{
    text.remove(locale().groupSeparator());
    static const QRegularExpression wholeNumber(QStringLiteral("^[+-]?[0-9]+$"));
    return wholeNumber.match(text).hasMatch() ? std::optional(text.toDouble()) : std::nullopt;
}

} // namespace zrnview
