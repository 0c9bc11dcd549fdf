#include "camerachoice.h"

#include "cameras/camera_pool.h"

namespace {

bool isOfficeOpenXml(ft_t type)
{
    return type == ft_docx || type == ft_xlsx || type == ft_pptx || type == ft_opc;
}

CameraChoice choiceOf(ft_t type, const Camera_Pool &pool)
{
    if (type == ft_unknown || pool.getPluginFromFileType(type) == nullptr)
        return {};
    return {type, pool.getCameraNameFromFileType(type), type == ft_fileidentifier};
}

} // namespace

CameraChoice chooseCamera(ft_t identified, const Camera_Pool &pool)
{
    CameraChoice choice = choiceOf(identified, pool);
    if (choice.type == ft_unknown && isOfficeOpenXml(identified))
        choice = choiceOf(ft_opc, pool);
    if (choice.type == ft_unknown)
        choice = choiceOf(ft_fileidentifier, pool);
    return choice;
}
