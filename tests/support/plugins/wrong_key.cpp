#include <QObject>

class WrongKey : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "Quorvane.Hardware.ZRNCameraFactory.v2.0" FILE "othercamera.json")
};

#include "wrong_key.moc"
