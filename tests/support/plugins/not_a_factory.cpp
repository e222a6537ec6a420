#include <QObject>

/// Carries the driver's metadata, but its root object answers no factory interface.
class NotAFactory : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "Quorvane.Hardware.ZRNCameraFactory.v2.0" FILE "zrncamera.json")
};

#include "not_a_factory.moc"
