#include "login/ComputerName.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <QSysInfo>
#endif

namespace kvx {

QString computerName()
{
#if defined(_WIN32)
    wchar_t name[256];
    DWORD length = 256;
    return GetComputerNameW(name, &length) ? QString::fromWCharArray(name, int(length)) : QString();
#else
    return QSysInfo::machineHostName().left(256);
#endif
}

} // namespace kvx
