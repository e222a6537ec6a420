#pragma once

#include "zrnview/device/camera_device.h"

#include <QAbstractTableModel>
#include <QTableView>

namespace zrnview
{

/// All properties of one camera: key, value, and the driver's answer to reading it. Values that the
/// driver can write are edited in place.
class PropertyModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Key, Value, Answer, ColumnCount };

    explicit PropertyModel(QObject* parent = nullptr)
        : QAbstractTableModel(parent)
    {
    }

    void show(const PropertyReadings& readings);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;

signals:
    void edited(const QByteArray& key, const zrn::Value& value);

private:
    PropertyReadings m_readings;
};

/// The table of a camera's properties; asks the camera for them while it is visible.
class PropertyTable : public QTableView
{
    Q_OBJECT

public:
    /// @param device outlives the table
    explicit PropertyTable(CameraDevice& device, QWidget* parent = nullptr);
    ~PropertyTable() override;

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    CameraDevice& m_device;
    PropertyModel* m_model;
};

} // namespace zrnview
