#pragma once

#include <QFrame>
#include <QLabel>

class QHBoxLayout;
class QPushButton;

namespace zrnview
{

/// A bar that says what is wrong and what to do about it. Hidden while there is nothing to say.
class NoticeBar : public QFrame
{
    Q_OBJECT

public:
    enum class Tone { Information, Attention, Fault };

    explicit NoticeBar(QWidget* parent = nullptr);

    /// @param remedy what the user can do; may have several lines
    void show(Tone tone, const QString& what, const QString& remedy);
    void clear();
    /// Adds a button at the bar's end.
    QPushButton* addButton(const QString& text);

    QString what() const { return m_what->text(); }
    QString remedy() const { return m_remedy->text(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Tone m_tone = Tone::Information;
    QLabel* m_what;
    QLabel* m_remedy;
    QHBoxLayout* m_buttons;
};

} // namespace zrnview
