// A Qt plug-in that declares the camera interface's identifier but whose
// object does not implement it: the pool must load it and then leave it out.

#include "cameras/camera_interfaces.h"

#include <QObject>

class NotACameraPlugin : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID VXCameraPluginIF_iid)
};

#include "not_camera_plugin.moc"
