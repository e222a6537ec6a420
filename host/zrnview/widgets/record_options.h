#pragma once

#include "client/recording_session.h"

#include <QCheckBox>
#include <QDialog>
#include <QDoubleSpinBox>
#include <QSpinBox>

namespace zrnview
{

/// What recordings are to be: how long, around triggers or at once, of one camera or of all.
class RecordOptions : public QDialog
{
    Q_OBJECT

public:
    explicit RecordOptions(QWidget* parent = nullptr);

    zrn::RecordingPlan plan(const QString& folder) const;
    bool ofAllCameras() const { return m_allCameras->isChecked(); }

    QCheckBox& framesBox() { return *m_hasFrames; }
    QSpinBox& framesField() { return *m_frames; }
    QCheckBox& secondsBox() { return *m_hasSeconds; }
    QDoubleSpinBox& secondsField() { return *m_seconds; }
    QCheckBox& triggerBox() { return *m_hasTrigger; }
    QDoubleSpinBox& beforeField() { return *m_before; }
    QCheckBox& allCamerasBox() { return *m_allCameras; }

private:
    QCheckBox* m_hasFrames;
    QSpinBox* m_frames;
    QCheckBox* m_hasSeconds;
    QDoubleSpinBox* m_seconds;
    QCheckBox* m_hasTrigger;
    QDoubleSpinBox* m_before;
    QCheckBox* m_allCameras;
};

} // namespace zrnview
