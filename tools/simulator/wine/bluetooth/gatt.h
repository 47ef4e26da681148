// Services, characteristics and their operations.

#pragma once

#include "wine/bluetooth/link.h"
#include "wine/bluetooth/operation.h"

namespace brennix {

// GattCommunicationStatus.
enum CommunicationStatus : INT32 { kSuccess = 0, kUnreachable = 1 };

class ServicesResult final : public Object<IServicesResult> {
public:
    ServicesResult(INT32 status, std::vector<Ref<IGattService>> services)
        : Object("GattDeviceServicesResult"), status_(status), services_(std::move(services)) {}
    HRESULT STDMETHODCALLTYPE get_Status(INT32* status) override;
    HRESULT STDMETHODCALLTYPE get_Services(IGattServices** list) override;

private:
    const INT32 status_;
    const std::vector<Ref<IGattService>> services_;
};

using ServicesOperation =
    Operation<IServicesOperation, ServicesIds, IServicesResult*, Ref<IServicesResult>>;

// Connects and asks the dongle for its services.
HRESULT GetServices(const char* function, Link* link, IServicesOperation** operation);

}  // namespace brennix
