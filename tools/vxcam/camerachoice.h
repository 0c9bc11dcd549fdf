#pragma once

#include "cameras/filetype.h"

#include <QString>

class Camera_Pool;

// The camera a file goes to once its type is known.
struct CameraChoice
{
    ft_t type = ft_unknown; // the type the camera is prepared for; 0 when none is there
    QString camera;         // the plug-in's file name
    bool fileIdentifier = false;
};

// The plug-in registered for the identified type; for an Office Open XML
// kind (docx, xlsx, pptx) a plug-in registered for the package type (ft_opc)
// also qualifies; otherwise the file-identifier camera, which carries any
// file.
CameraChoice chooseCamera(ft_t identified, const Camera_Pool &pool);
