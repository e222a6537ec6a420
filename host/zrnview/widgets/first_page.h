#pragma once

#include "client/findings.h"

#include <QWidget>

#include <functional>
#include <thread>
#include <vector>

class QLabel;
class QPushButton;

namespace zrnview
{

/// What the window shows instead of images: why there are none, and what can be done without a
/// camera.
class FirstPage : public QWidget
{
    Q_OBJECT

public:
    using Examination = std::function<std::vector<zrn::Finding>()>;

    /// @param examine finds out why cameras cannot be used; called on a thread of its own
    explicit FirstPage(Examination examine, QWidget* parent = nullptr);
    /// Waits for an examination that runs.
    ~FirstPage() override;

    void setText(const QString& text);
    QString text() const;
    QString findings() const;
    QPushButton& doctorButton() { return *m_doctor; }
    QPushButton& virtualButton() { return *m_virtual; }
    QPushButton& recordingButton() { return *m_recording; }

signals:
    void virtualCameraRequested();
    void recordingRequested();

private:
    void startExamination();
    void show(const std::vector<zrn::Finding>& findings);

    const Examination m_examine;
    QLabel* m_text;
    QPushButton* m_doctor;
    QPushButton* m_virtual;
    QPushButton* m_recording;
    QLabel* m_findings;
    std::thread m_thread;
};

} // namespace zrnview
