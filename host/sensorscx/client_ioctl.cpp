// Client::DeviceIoControl lives apart: it is the only client call that needs
// the framework's requests, so code that never calls it does not pull them in.
#include "host/sensorscx/client.h"
#include "host/sensorscx/client_call.h"

namespace host::sensorscx {

CallResult Client::DeviceIoControl(std::size_t sensor, ULONG ioControlCode, SIZE_T inputLength,
                                   SIZE_T outputLength, CallOptions options)
{
    return detail::Invoke(
        device_, sensor, options, &SENSOR_CONTROLLER_CONFIG::EvtSensorDeviceIoControl,
        [&](auto callback, SENSOROBJECT handle, SensorState&) {
            CallResult result;
            WDFREQUEST request = nullptr;
            result.status = WdfRequestCreate(nullptr, nullptr, &request);
            if (!NT_SUCCESS(result.status))
                return result;
            result.status = callback(handle, request, outputLength, inputLength, ioControlCode);
            result.requestStatus = WdfRequestGetStatus(request);
            WdfObjectDelete(request);
            return result;
        });
}

}  // namespace host::sensorscx
