#include "objects/module_list.h"

#include <cstring>

#include "objects/modules.h"
#include "support/log.h"
#include "support/memory.h"
#include "transport/transport_table.h"

namespace tarvik {
namespace {

char* CopyText(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    auto* copy = static_cast<char*>(AllocateMem(size));
    if (copy != nullptr) std::memcpy(copy, text, size);
    return copy;
}

void DescribeModule(std::uint32_t hMod, const ModuleSlot& slot, PDU_MODULE_DATA* data) {
    const Transport* transport = FindTransport(slot.transport);
    const std::uint8_t* mac = slot.login.Mac();
    const DeviceName name = LoginDeviceName(slot.login);
    char text[256];

    data->ModuleTypeId = transport == nullptr ? 1 : transport->module_type_id;
    data->hMod = hMod;
    FormatText(text, sizeof text,
               "VendorName='Tarvik' ModuleName='%s' "
               "SerialNumber='%02X:%02X:%02X:%02X:%02X:%02X' PersonalVciID='%s' "
               "ConnectionType='%s' Status='available'",
               name.text, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5], name.text,
               transport == nullptr ? "USB" : transport->connection_type);
    data->pVendorModuleName = CopyText(text);
    FormatText(text, sizeof text, "Interface='%s'",
               transport == nullptr ? "USB" : transport->interface_name);
    data->pVendorAdditionalInfo = CopyText(text);
    // Deliberate: always listed as available; PDUGetStatus returns the slot's own status.
    data->ModuleStatus = PDU_MODST_AVAIL;
}

}  // namespace

PDU_MODULE_ITEM* MakeModuleItem() {
    auto item = AllocateRecord<PDU_MODULE_ITEM>();
    if (item == nullptr) return nullptr;
    item->ItemType = PDU_IT_MODULE_ID;
    const LockGuard hold(*ModuleDevicesLock);
    const std::uint32_t count = ModuleDevices->count;
    if (count == 0) return item.release();
    item->pModuleData =
        static_cast<PDU_MODULE_DATA*>(AllocateArray(count, sizeof(PDU_MODULE_DATA)));
    if (item->pModuleData == nullptr) return nullptr;
    for (std::uint32_t index = 0; index < kMaxModules && item->NumEntries < count; ++index) {
        const ModuleSlot& slot = ModuleDevices->slots[index];
        if (slot.present.load()) {
            DescribeModule(index, slot, &item->pModuleData[item->NumEntries++]);
        }
    }
    return item.release();
}

}  // namespace tarvik
