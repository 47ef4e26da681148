// The interfaces of the Windows Runtime's Bluetooth LE classes, with every function in its place.
// Those that the stand-in does not offer report their use.

#pragma once

#include <windows.h>

#include <activation.h>
#include <asyncinfo.h>
#include <eventtoken.h>
#include <inspectable.h>

#include <cstdint>

namespace brennix {

// Reports the use of a function that the stand-in does not offer.
HRESULT NotOffered(const char* interface_name, const char* function);

#define NOT_OFFERED(function) \
    virtual HRESULT STDMETHODCALLTYPE function() { return NotOffered(kName, #function); }
#define OFFERED(function, ...) virtual HRESULT STDMETHODCALLTYPE function(__VA_ARGS__) = 0

using Token = EventRegistrationToken;

// ---------------------------------------------------------------- foundation

inline constexpr IID kInspectable = {
    0xaf86e2e0, 0xb12d, 0x4c6a, {0x9c, 0x5a, 0xd7, 0xaa, 0x65, 0x10, 0x1e, 0x90}};
inline constexpr IID kAgileObject = {
    0x94ea2b94, 0xe9cc, 0x49e0, {0xc0, 0xff, 0xee, 0x64, 0xca, 0x8f, 0x5b, 0x90}};

struct IClosable : IInspectable {
    static constexpr const char* kName = "IClosable";
    static constexpr IID kId = {
        0x30d5a829, 0x7fa4, 0x4026, {0x83, 0xbb, 0xd7, 0x5b, 0xae, 0x4e, 0xa9, 0x9e}};
    OFFERED(Close, );
};

struct IFactory : IInspectable {
    static constexpr const char* kName = "IActivationFactory";
    static constexpr IID kId = {
        0x00000035, 0x0000, 0x0000, {0xc0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
    OFFERED(ActivateInstance, IInspectable** instance);
};

struct IAsyncInfoAbi : IInspectable {
    static constexpr const char* kName = "IAsyncInfo";
    static constexpr IID kId = {
        0x00000036, 0x0000, 0x0000, {0xc0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
    OFFERED(get_Id, UINT32* id);
    OFFERED(get_Status, AsyncStatus* status);
    OFFERED(get_ErrorCode, HRESULT* error);
    OFFERED(Cancel, );
    OFFERED(Close, );
};

// Delegates: implemented by the program.
template <typename First, typename Second>
struct IDelegate : IUnknown {
    OFFERED(Invoke, First first, Second second);
};

// Each instantiation of a generic interface has its own ids, kept in `Ids`.
template <typename Result, typename Ids>
struct IAsyncOperation : IInspectable {
    static constexpr const char* kName = "IAsyncOperation";
    static constexpr IID kId = Ids::kOperation;
    using Handler = IDelegate<IAsyncOperation*, AsyncStatus>;
    OFFERED(put_Completed, Handler* handler);
    OFFERED(get_Completed, Handler** handler);
    OFFERED(GetResults, Result* result);
};

template <typename Item, const IID& Id>
struct IVectorView : IInspectable {
    static constexpr const char* kName = "IVectorView";
    static constexpr IID kId = Id;
    OFFERED(GetAt, UINT32 index, Item** item);
    OFFERED(get_Size, UINT32* size);
    NOT_OFFERED(IndexOf)
    NOT_OFFERED(GetMany)
};

template <typename Item, const IID& Id>
struct IVector : IInspectable {
    static constexpr const char* kName = "IVector";
    static constexpr IID kId = Id;
    OFFERED(GetAt, UINT32 index, Item** item);
    OFFERED(get_Size, UINT32* size);
    NOT_OFFERED(GetView)
    NOT_OFFERED(IndexOf)
    NOT_OFFERED(SetAt)
    NOT_OFFERED(InsertAt)
    NOT_OFFERED(RemoveAt)
    NOT_OFFERED(Append)
    NOT_OFFERED(RemoveAtEnd)
    NOT_OFFERED(Clear)
    NOT_OFFERED(GetMany)
    NOT_OFFERED(ReplaceAll)
};

// ---------------------------------------------------------------- Windows.Storage.Streams

struct IBuffer : IInspectable {
    static constexpr const char* kName = "IBuffer";
    static constexpr IID kId = {
        0x905a0fe0, 0xbc53, 0x11df, {0x8c, 0x49, 0x00, 0x1e, 0x4f, 0xc6, 0x86, 0xda}};
    OFFERED(get_Capacity, UINT32* capacity);
    OFFERED(get_Length, UINT32* length);
    OFFERED(put_Length, UINT32 length);
};

struct IBufferByteAccess : IUnknown {
    static constexpr const char* kName = "IBufferByteAccess";
    static constexpr IID kId = {
        0x905a0fef, 0xbc53, 0x11df, {0x8c, 0x49, 0x00, 0x1e, 0x4f, 0xc6, 0x86, 0xda}};
    OFFERED(Buffer, BYTE** bytes);
};

// ---------------------------------------------------------------- advertisements

struct IDataSection : IInspectable {
    static constexpr const char* kName = "IBluetoothLEAdvertisementDataSection";
    static constexpr IID kId = {
        0xd7213314, 0x3a43, 0x40f9, {0xb6, 0xf0, 0x92, 0xbf, 0xef, 0xc3, 0x4a, 0xe3}};
    OFFERED(get_DataType, BYTE* type);
    NOT_OFFERED(put_DataType)
    OFFERED(get_Data, IBuffer** data);
    NOT_OFFERED(put_Data)
};

inline constexpr IID kDataSections = {
    0xb6f71ad2, 0xe2cf, 0x5d54, {0xb6, 0xf1, 0x90, 0x96, 0x4e, 0xe5, 0xd4, 0xda}};
using IDataSections = IVector<IDataSection, kDataSections>;

struct IAdvertisement : IInspectable {
    static constexpr const char* kName = "IBluetoothLEAdvertisement";
    static constexpr IID kId = {
        0x066fb2b7, 0x33d1, 0x4e7d, {0x83, 0x67, 0xcf, 0x81, 0xd0, 0xf7, 0x96, 0x53}};
    NOT_OFFERED(get_Flags)
    NOT_OFFERED(put_Flags)
    NOT_OFFERED(get_LocalName)
    NOT_OFFERED(put_LocalName)
    NOT_OFFERED(get_ServiceUuids)
    NOT_OFFERED(get_ManufacturerData)
    OFFERED(get_DataSections, IDataSections** sections);
    NOT_OFFERED(GetManufacturerDataByCompanyId)
    NOT_OFFERED(GetSectionsByType)
};

struct IReceivedEventArgs : IInspectable {
    static constexpr const char* kName = "IBluetoothLEAdvertisementReceivedEventArgs";
    static constexpr IID kId = {
        0x27987ddf, 0xe596, 0x41be, {0x8d, 0x43, 0x9e, 0x67, 0x31, 0xd4, 0xa9, 0x13}};
    OFFERED(get_RawSignalStrengthInDBm, INT16* rssi);
    OFFERED(get_BluetoothAddress, UINT64* address);
    NOT_OFFERED(get_AdvertisementType)
    NOT_OFFERED(get_Timestamp)
    OFFERED(get_Advertisement, IAdvertisement** advertisement);
};

struct IStoppedEventArgs : IInspectable {
    static constexpr const char* kName = "IBluetoothLEAdvertisementWatcherStoppedEventArgs";
    static constexpr IID kId = {
        0xdd40f84d, 0xe7b9, 0x43e3, {0x9c, 0x04, 0x06, 0x85, 0xd0, 0x85, 0xfd, 0x8c}};
    OFFERED(get_Error, INT32* error);
};

struct IWatcher : IInspectable {
    static constexpr const char* kName = "IBluetoothLEAdvertisementWatcher";
    static constexpr IID kId = {
        0xa6ac336f, 0xf3d3, 0x4297, {0x8d, 0x6c, 0xc8, 0x1e, 0xa6, 0x62, 0x3f, 0x40}};
    static constexpr IID kReceivedHandler = {
        0x90eb4eca, 0xd465, 0x5ea0, {0xa6, 0x1c, 0x03, 0x3c, 0x8c, 0x5e, 0xce, 0xf2}};
    static constexpr IID kStoppedHandler = {
        0x9936a4db, 0xdc99, 0x55c3, {0x9e, 0x9b, 0xbf, 0x48, 0x54, 0xbd, 0x9e, 0xab}};
    using ReceivedHandler = IDelegate<IWatcher*, IReceivedEventArgs*>;
    using StoppedHandler = IDelegate<IWatcher*, IStoppedEventArgs*>;
    NOT_OFFERED(get_MinSamplingInterval)
    NOT_OFFERED(get_MaxSamplingInterval)
    NOT_OFFERED(get_MinOutOfRangeTimeout)
    NOT_OFFERED(get_MaxOutOfRangeTimeout)
    OFFERED(get_Status, INT32* status);
    OFFERED(get_ScanningMode, INT32* mode);
    OFFERED(put_ScanningMode, INT32 mode);
    NOT_OFFERED(get_SignalStrengthFilter)
    NOT_OFFERED(put_SignalStrengthFilter)
    NOT_OFFERED(get_AdvertisementFilter)
    NOT_OFFERED(put_AdvertisementFilter)
    OFFERED(Start, );
    OFFERED(Stop, );
    OFFERED(add_Received, ReceivedHandler* handler, Token* token);
    OFFERED(remove_Received, Token token);
    OFFERED(add_Stopped, StoppedHandler* handler, Token* token);
    OFFERED(remove_Stopped, Token token);
};

// ---------------------------------------------------------------- GATT

struct StatusIds {
    static constexpr IID kOperation = {
        0x3ff69516, 0x1bfb, 0x52e9, {0x9e, 0xe6, 0xe5, 0xcd, 0xb7, 0x8e, 0x16, 0x83}};
    static constexpr IID kHandler = {
        0x2154117a, 0x978d, 0x59db, {0x99, 0xcf, 0x6b, 0x69, 0x0c, 0xb3, 0x38, 0x9b}};
};
using IStatusOperation = IAsyncOperation<INT32, StatusIds>;

struct IValueChangedEventArgs : IInspectable {
    static constexpr const char* kName = "IGattValueChangedEventArgs";
    static constexpr IID kId = {
        0xd21bdb54, 0x06e3, 0x4ed8, {0xa2, 0x63, 0xac, 0xfa, 0xc8, 0xba, 0x73, 0x13}};
    OFFERED(get_CharacteristicValue, IBuffer** value);
    NOT_OFFERED(get_Timestamp)
};

struct ICharacteristic : IInspectable {
    static constexpr const char* kName = "IGattCharacteristic";
    static constexpr IID kId = {
        0x59cb50c1, 0x5934, 0x4f68, {0xa1, 0x98, 0xeb, 0x86, 0x4f, 0xa4, 0x4e, 0x6b}};
    static constexpr IID kValueChangedHandler = {
        0xc1f420f6, 0x6292, 0x5760, {0xa2, 0xc9, 0x9d, 0xdf, 0x98, 0x68, 0x3c, 0xfc}};
    using ValueChangedHandler = IDelegate<ICharacteristic*, IValueChangedEventArgs*>;
    NOT_OFFERED(GetDescriptors)
    NOT_OFFERED(get_CharacteristicProperties)
    NOT_OFFERED(get_ProtectionLevel)
    NOT_OFFERED(put_ProtectionLevel)
    NOT_OFFERED(get_UserDescription)
    OFFERED(get_Uuid, GUID* uuid);
    NOT_OFFERED(get_AttributeHandle)
    NOT_OFFERED(get_PresentationFormats)
    NOT_OFFERED(ReadValueAsync)
    NOT_OFFERED(ReadValueWithCacheModeAsync)
    NOT_OFFERED(WriteValueAsync)
    OFFERED(WriteValueWithOptionAsync, IBuffer* value, INT32 option, IStatusOperation** operation);
    NOT_OFFERED(ReadClientCharacteristicConfigurationDescriptorAsync)
    OFFERED(WriteClientCharacteristicConfigurationDescriptorAsync, INT32 value,
            IStatusOperation** operation);
    OFFERED(add_ValueChanged, ValueChangedHandler* handler, Token* token);
    OFFERED(remove_ValueChanged, Token token);
};

inline constexpr IID kCharacteristics = {
    0xcb3ab3ae, 0xb561, 0x504f, {0xa8, 0x08, 0x59, 0x9d, 0xec, 0xeb, 0x2d, 0xf4}};
using ICharacteristics = IVectorView<ICharacteristic, kCharacteristics>;

struct ICharacteristicsResult : IInspectable {
    static constexpr const char* kName = "IGattCharacteristicsResult";
    static constexpr IID kId = {
        0x1194945c, 0xb257, 0x4f3e, {0x9d, 0xb7, 0xf6, 0x8b, 0xc9, 0xa9, 0xae, 0xf2}};
    OFFERED(get_Status, INT32* status);
    NOT_OFFERED(get_ProtocolError)
    OFFERED(get_Characteristics, ICharacteristics** list);
};

struct CharacteristicsIds {
    static constexpr IID kOperation = {
        0x0972194a, 0xac1c, 0x5536, {0x98, 0x86, 0x27, 0xe5, 0x8a, 0x18, 0xf2, 0x73}};
    static constexpr IID kHandler = {
        0xd6a15475, 0x1e72, 0x5c56, {0x98, 0xe8, 0x88, 0xf4, 0xbc, 0x3e, 0x03, 0x13}};
};
using ICharacteristicsOperation = IAsyncOperation<ICharacteristicsResult*, CharacteristicsIds>;

struct IGattSession : IInspectable {
    static constexpr const char* kName = "IGattSession";
    static constexpr IID kId = {
        0xd23b5143, 0xe04e, 0x4c24, {0x99, 0x9c, 0x9c, 0x25, 0x6f, 0x98, 0x56, 0xb1}};
    NOT_OFFERED(get_DeviceId)
    NOT_OFFERED(get_CanMaintainConnection)
    NOT_OFFERED(put_MaintainConnection)
    NOT_OFFERED(get_MaintainConnection)
    OFFERED(get_MaxPduSize, UINT16* size);
    NOT_OFFERED(get_SessionStatus)
    NOT_OFFERED(add_MaxPduSizeChanged)
    NOT_OFFERED(remove_MaxPduSizeChanged)
    NOT_OFFERED(add_SessionStatusChanged)
    NOT_OFFERED(remove_SessionStatusChanged)
};

struct IGattService : IInspectable {
    static constexpr const char* kName = "IGattDeviceService";
    static constexpr IID kId = {
        0xac7b7c05, 0xb33c, 0x47cf, {0x99, 0x0f, 0x6b, 0x8f, 0x55, 0x77, 0xdf, 0x71}};
    NOT_OFFERED(GetCharacteristics)
    NOT_OFFERED(GetIncludedServices)
    NOT_OFFERED(get_DeviceId)
    OFFERED(get_Uuid, GUID* uuid);
    NOT_OFFERED(get_AttributeHandle)
};

struct IGattService3 : IInspectable {
    static constexpr const char* kName = "IGattDeviceService3";
    static constexpr IID kId = {
        0xb293a950, 0x0c53, 0x437c, {0xa9, 0xb3, 0x5c, 0x32, 0x10, 0xc6, 0xe5, 0x69}};
    NOT_OFFERED(get_DeviceAccessInformation)
    OFFERED(get_Session, IGattSession** session);
    NOT_OFFERED(get_SharingMode)
    NOT_OFFERED(RequestAccessAsync)
    NOT_OFFERED(OpenAsync)
    OFFERED(GetCharacteristicsAsync, ICharacteristicsOperation** operation);
    OFFERED(GetCharacteristicsWithCacheModeAsync, INT32 mode,
            ICharacteristicsOperation** operation);
    NOT_OFFERED(GetCharacteristicsForUuidAsync)
    NOT_OFFERED(GetCharacteristicsForUuidWithCacheModeAsync)
    NOT_OFFERED(GetIncludedServicesAsync)
    NOT_OFFERED(GetIncludedServicesWithCacheModeAsync)
    NOT_OFFERED(GetIncludedServicesForUuidAsync)
    NOT_OFFERED(GetIncludedServicesForUuidWithCacheModeAsync)
};

inline constexpr IID kServices = {
    0x7c8e7fdd, 0xa1a1, 0x528a, {0x81, 0xd1, 0x29, 0x67, 0x69, 0x22, 0x7a, 0x08}};
using IGattServices = IVectorView<IGattService, kServices>;

struct IServicesResult : IInspectable {
    static constexpr const char* kName = "IGattDeviceServicesResult";
    static constexpr IID kId = {
        0x171dd3ee, 0x016d, 0x419d, {0x83, 0x8a, 0x57, 0x6c, 0xf4, 0x75, 0xa3, 0xd8}};
    OFFERED(get_Status, INT32* status);
    NOT_OFFERED(get_ProtocolError)
    OFFERED(get_Services, IGattServices** list);
};

struct ServicesIds {
    static constexpr IID kOperation = {
        0xe7c667f6, 0xe874, 0x500f, {0x86, 0xff, 0x76, 0x0c, 0xa6, 0xf0, 0x7a, 0x58}};
    static constexpr IID kHandler = {
        0x74ab0892, 0xa631, 0x5d6c, {0xb1, 0xb4, 0xbd, 0x2e, 0x1a, 0x74, 0x1a, 0x9b}};
};
using IServicesOperation = IAsyncOperation<IServicesResult*, ServicesIds>;

// ---------------------------------------------------------------- devices

struct IDevice : IInspectable {
    static constexpr const char* kName = "IBluetoothLEDevice";
    static constexpr IID kId = {
        0xb5ee2f7b, 0x4ad8, 0x4642, {0xac, 0x48, 0x80, 0xa0, 0xb5, 0x00, 0xe8, 0x87}};
    static constexpr IID kConnectionStatusChangedHandler = {
        0xa90661e2, 0x372e, 0x5d1e, {0xbb, 0xbb, 0xb8, 0xa2, 0xce, 0x0e, 0x7c, 0x4d}};
    using ConnectionStatusChangedHandler = IDelegate<IDevice*, IInspectable*>;
    NOT_OFFERED(get_DeviceId)
    NOT_OFFERED(get_Name)
    NOT_OFFERED(get_GattServices)
    OFFERED(get_ConnectionStatus, INT32* status);
    OFFERED(get_BluetoothAddress, UINT64* address);
    NOT_OFFERED(GetGattService)
    NOT_OFFERED(add_NameChanged)
    NOT_OFFERED(remove_NameChanged)
    NOT_OFFERED(add_GattServicesChanged)
    NOT_OFFERED(remove_GattServicesChanged)
    OFFERED(add_ConnectionStatusChanged, ConnectionStatusChangedHandler* handler, Token* token);
    OFFERED(remove_ConnectionStatusChanged, Token token);
};

struct IDevice3 : IInspectable {
    static constexpr const char* kName = "IBluetoothLEDevice3";
    static constexpr IID kId = {
        0xaee9e493, 0x44ac, 0x40dc, {0xaf, 0x33, 0xb2, 0xc1, 0x3c, 0x01, 0xca, 0x46}};
    NOT_OFFERED(get_DeviceAccessInformation)
    NOT_OFFERED(RequestAccessAsync)
    OFFERED(GetGattServicesAsync, IServicesOperation** operation);
    OFFERED(GetGattServicesWithCacheModeAsync, INT32 mode, IServicesOperation** operation);
    NOT_OFFERED(GetGattServicesForUuidAsync)
    NOT_OFFERED(GetGattServicesForUuidWithCacheModeAsync)
};

struct DeviceIds {
    static constexpr IID kOperation = {
        0x375f9d67, 0x74a2, 0x5f91, {0xa1, 0x1d, 0x16, 0x90, 0x93, 0x71, 0x8d, 0x41}};
    static constexpr IID kHandler = {
        0x9156b79f, 0xc54a, 0x5277, {0x8f, 0x8b, 0xd2, 0xcc, 0x43, 0xc7, 0xe0, 0x04}};
};
using IDeviceOperation = IAsyncOperation<IDevice*, DeviceIds>;

struct IDeviceStatics : IInspectable {
    static constexpr const char* kName = "IBluetoothLEDeviceStatics";
    static constexpr IID kId = {
        0xc8cf1a19, 0xf0b6, 0x4bf0, {0x86, 0x89, 0x41, 0x30, 0x3d, 0xe2, 0xd9, 0xf4}};
    NOT_OFFERED(FromIdAsync)
    OFFERED(FromBluetoothAddressAsync, UINT64 address, IDeviceOperation** operation);
    NOT_OFFERED(GetDeviceSelector)
};

#undef OFFERED
#undef NOT_OFFERED

}  // namespace brennix
