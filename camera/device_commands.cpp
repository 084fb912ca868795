#include "camera/device_commands.h"

#include "camera/camera_access.h"

namespace {

int RunInterfaceGetter(uint32_t command, const char* interface, char* output)
{
    if (interface == nullptr || output == nullptr)
        return kCameraFailed;
    return RunCameraCommand(command, interface, output);
}

} // namespace

int CameraGetIPAddr(const char* interface, char* address)
{
    return RunInterfaceGetter(2, interface, address);
}

int CameraSetIPAddr(const InterfaceAddress* in)
{
    return RunSetter(3, in);
}

int CameraSetDhcpStatue(const DhcpStatue* in)
{
    return RunCameraCommand(5, in, nullptr); // the operation itself refuses a missing record
}

int CameraGetHttpPort(uint16_t* out)
{
    return RunGetter(6, out);
}

int CameraSetHttpPort(uint16_t port)
{
    return RunCameraCommand(7, &port, nullptr);
}

int CameraGetMacAddr(const char* interface, char* mac)
{
    return RunInterfaceGetter(10, interface, mac);
}

int CameraGetDeviceInformation(DeviceInformation* out)
{
    return RunGetter(11, out);
}

int CameraGetNetmask(const char* interface, char* mask)
{
    return RunInterfaceGetter(34, interface, mask);
}

int CameraSetNetmask(const InterfaceAddress* in)
{
    return RunSetter(35, in);
}

int CameraGetDNS(const char* interface, char* server)
{
    return RunInterfaceGetter(36, interface, server);
}

int CameraSetDNS(const InterfaceAddress* in)
{
    return RunSetter(37, in);
}

int CameraGetHostname(char* name)
{
    return RunGetter(40, name);
}

int CameraSetHostname(const char* name)
{
    return RunSetter(41, name);
}

int CameraGetGateway(const char* interface, char* gateway)
{
    return RunInterfaceGetter(42, interface, gateway);
}

int CameraSetGateway(const InterfaceAddress* in)
{
    return RunSetter(43, in);
}

int CameraGetUsers(UserList* out)
{
    return RunGetter(44, out);
}

int CameraCreateUser(const UserList* in)
{
    return RunSetter(45, in);
}

int CameraSetUser(const UserList* in)
{
    return RunSetter(46, in);
}

int CameraDelUser(const UserList* in)
{
    return RunSetter(47, in);
}

int CameraReboot()
{
    return RunCameraCommand(48, nullptr, nullptr);
}

int CameraFactoryDefault(uint32_t mode)
{
    return RunCameraCommand(49, &mode, nullptr);
}

int CameraUpgrade(const void* in)
{
    return RunSetter(50, in);
}

int CameraSetDateTime(CameraDateTime time)
{
    return RunCameraCommand(52, &time, nullptr);
}

int CameraGetTimeZone(uint8_t* out)
{
    return RunCameraCommand(53, nullptr, out); // the operation itself refuses a missing place
}

int CameraSetTimeZone(uint32_t flag, uint32_t index)
{
    const TimeZoneSetting record{flag, index};
    return RunCameraCommand(54, &record, nullptr);
}
