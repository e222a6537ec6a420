#include <QObject>

class WrongIid : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "Example.Other.Factory.v1.0" FILE "zrncamera.json")
};

#include "wrong_iid.moc"
