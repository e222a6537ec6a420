#pragma once

#include <QSpinBox>

#include <optional>

namespace zrnview
{

/// A field for a whole number that takes anything while it is typed. Of a number outside of the
/// range it uses the nearest inside, of what is no number nothing, and it says so. Return and
/// Escape end the input, Escape without taking it.
class NumberField : public QSpinBox
{
    Q_OBJECT

public:
    explicit NumberField(QWidget* parent = nullptr);

signals:
    /// What was typed could not be taken as it was. @param explanation why, and what was taken
    void limited(const QString& explanation) const;
    /// The user is typing.
    void edited();
    /// Return or Escape was pressed.
    void finished();
    /// Escape was pressed: the field shows its value again.
    void cancelled();

protected:
    QValidator::State validate(QString& text, int& position) const override;
    void fixup(QString& text) const override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    QString withoutSuffix(QString text) const;
    std::optional<double> numberIn(QString text) const;
    QString shown(int value) const { return prefix() + textFromValue(value) + suffix(); }
};

} // namespace zrnview
