#pragma once

// The Windows Runtime's interfaces that Bluetooth LE needs, as tables of functions. MinGW's headers
// do not have them. Each table begins with the six functions of IInspectable; unused functions are
// placeholders that keep the others in their slots.

#include <windows.h>

#include <eventtoken.h>
#include <unknwn.h>

#include <cstddef>
#include <cstdint>

namespace tarvik::winrt {

template <typename Interface, typename... Parameters>
using Method = HRESULT(STDMETHODCALLTYPE*)(Interface* self, Parameters...);
using Unused = void (*)();

// The common beginning of the tables. Also used for objects of unknown type.
struct Inspectable {
    struct Table {
        Method<Inspectable, const IID&, void**> QueryInterface;
        ULONG(STDMETHODCALLTYPE* AddRef)(Inspectable* self);
        ULONG(STDMETHODCALLTYPE* Release)(Inspectable* self);
        Unused slots_3_to_5[3];
    };
    const Table* table;
};

#define TARVIK_ASSERT_SLOT(interface, method, slot) \
    static_assert(offsetof(interface::Table, method) == (slot) * sizeof(void*))

TARVIK_ASSERT_SLOT(Inspectable, QueryInterface, 0);
TARVIK_ASSERT_SLOT(Inspectable, AddRef, 1);
TARVIK_ASSERT_SLOT(Inspectable, Release, 2);
static_assert(sizeof(Inspectable::Table) == 6 * sizeof(void*));
static_assert(sizeof(EventRegistrationToken) == 8);

// ---------------------------------------------------------------- foundation

inline constexpr IID kIUnknownIid = {
    0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID kIInspectableIid = {
    0xAF86E2E0, 0xB12D, 0x4C6A, {0x9C, 0x5A, 0xD7, 0xAA, 0x65, 0x10, 0x1E, 0x90}};
inline constexpr IID kIAgileObjectIid = {
    0x94EA2B94, 0xE9CC, 0x49E0, {0xC0, 0xFF, 0xEE, 0x64, 0xCA, 0x8F, 0x5B, 0x90}};

enum class AsyncState : std::int32_t { kStarted = 0, kCompleted = 1, kCanceled = 2, kError = 3 };

struct AsyncInfo {
    static constexpr IID kIid = {
        0x00000036, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
    struct Table {
        Inspectable::Table inspectable;
        Unused slots_6_to_7[2];
        Method<AsyncInfo, HRESULT*> get_ErrorCode;
        Method<AsyncInfo> Cancel;
        Method<AsyncInfo> Close;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(AsyncInfo, get_ErrorCode, 8);
TARVIK_ASSERT_SLOT(AsyncInfo, Cancel, 9);
TARVIK_ASSERT_SLOT(AsyncInfo, Close, 10);

// Result: a pointer to a class's default interface, or an enumeration. kCompletedIid is the id of
// its AsyncOperationCompletedHandler, which differs for each Result.
template <typename Result>
struct AsyncOperation {
    static const IID kCompletedIid;
    struct Table {
        Inspectable::Table inspectable;
        Method<AsyncOperation, IUnknown*> put_Completed;
        Unused slot_7;
        Method<AsyncOperation, Result*> GetResults;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(AsyncOperation<std::int32_t>, put_Completed, 6);
TARVIK_ASSERT_SLOT(AsyncOperation<std::int32_t>, GetResults, 8);

struct Closable {
    static constexpr IID kIid = {
        0x30D5A829, 0x7FA4, 0x4026, {0x83, 0xBB, 0xD7, 0x5B, 0xAE, 0x4E, 0xA9, 0x9E}};
    struct Table {
        Inspectable::Table inspectable;
        Method<Closable> Close;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(Closable, Close, 6);

// IVector and IVectorView begin with the same functions.
template <typename Item>
struct Vector {
    struct Table {
        Inspectable::Table inspectable;
        Method<Vector, std::uint32_t, Item**> GetAt;
        Method<Vector, std::uint32_t*> get_Size;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(Vector<Inspectable>, GetAt, 6);
TARVIK_ASSERT_SLOT(Vector<Inspectable>, get_Size, 7);

// ---------------------------------------------------------------- buffers

inline constexpr IID kIBufferIid = {
    0x905A0FE0, 0xBC53, 0x11DF, {0x8C, 0x49, 0x00, 0x1E, 0x4F, 0xC6, 0x86, 0xDA}};

struct Buffer {
    struct Table {
        Inspectable::Table inspectable;
        Unused slot_6;
        Method<Buffer, std::uint32_t*> get_Length;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(Buffer, get_Length, 7);

// A classic COM interface: its own functions follow the three of IUnknown.
struct BufferByteAccess {
    static constexpr IID kIid = {
        0x905A0FEF, 0xBC53, 0x11DF, {0x8C, 0x49, 0x00, 0x1E, 0x4F, 0xC6, 0x86, 0xDA}};
    struct Table {
        Unused slots_0_to_2[3];
        Method<BufferByteAccess, std::uint8_t**> Buffer;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(BufferByteAccess, Buffer, 3);

// ---------------------------------------------------------------- advertisements

enum class WatcherStatus : std::int32_t { kAborted = 4 };
enum class ScanningMode : std::int32_t { kActive = 1 };

struct DataSection {
    struct Table {
        Inspectable::Table inspectable;
        Method<DataSection, std::uint8_t*> get_DataType;
        Unused slot_7;
        Method<DataSection, Buffer**> get_Data;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(DataSection, get_DataType, 6);
TARVIK_ASSERT_SLOT(DataSection, get_Data, 8);

struct Advertisement {
    struct Table {
        Inspectable::Table inspectable;
        Unused slots_6_to_11[6];
        Method<Advertisement, Vector<DataSection>**> get_DataSections;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(Advertisement, get_DataSections, 12);

struct ReceivedEventArgs {
    struct Table {
        Inspectable::Table inspectable;
        Method<ReceivedEventArgs, std::int16_t*> get_RawSignalStrengthInDBm;
        Method<ReceivedEventArgs, std::uint64_t*> get_BluetoothAddress;
        Unused slots_8_to_9[2];
        Method<ReceivedEventArgs, Advertisement**> get_Advertisement;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(ReceivedEventArgs, get_RawSignalStrengthInDBm, 6);
TARVIK_ASSERT_SLOT(ReceivedEventArgs, get_BluetoothAddress, 7);
TARVIK_ASSERT_SLOT(ReceivedEventArgs, get_Advertisement, 10);

struct StoppedEventArgs {
    struct Table {
        Inspectable::Table inspectable;
        Method<StoppedEventArgs, std::int32_t*> get_Error;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(StoppedEventArgs, get_Error, 6);

struct AdvertisementWatcher {
    static constexpr wchar_t kClass[] =
        L"Windows.Devices.Bluetooth.Advertisement.BluetoothLEAdvertisementWatcher";
    static constexpr IID kIid = {
        0xA6AC336F, 0xF3D3, 0x4297, {0x8D, 0x6C, 0xC8, 0x1E, 0xA6, 0x62, 0x3F, 0x40}};
    static constexpr IID kReceivedIid = {  // TypedEventHandler<Watcher, ReceivedEventArgs>
        0x90EB4ECA,
        0xD465,
        0x5EA0,
        {0xA6, 0x1C, 0x03, 0x3C, 0x8C, 0x5E, 0xCE, 0xF2}};
    static constexpr IID kStoppedIid = {  // TypedEventHandler<Watcher, StoppedEventArgs>
        0x9936A4DB,
        0xDC99,
        0x55C3,
        {0x9E, 0x9B, 0xBF, 0x48, 0x54, 0xBD, 0x9E, 0xAB}};
    struct Table {
        Inspectable::Table inspectable;
        Unused slots_6_to_9[4];
        Method<AdvertisementWatcher, WatcherStatus*> get_Status;
        Unused slot_11;
        Method<AdvertisementWatcher, ScanningMode> put_ScanningMode;
        Unused slots_13_to_16[4];
        Method<AdvertisementWatcher> Start;
        Method<AdvertisementWatcher> Stop;
        Method<AdvertisementWatcher, IUnknown*, EventRegistrationToken*> add_Received;
        Method<AdvertisementWatcher, EventRegistrationToken> remove_Received;
        Method<AdvertisementWatcher, IUnknown*, EventRegistrationToken*> add_Stopped;
        Method<AdvertisementWatcher, EventRegistrationToken> remove_Stopped;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(AdvertisementWatcher, get_Status, 10);
TARVIK_ASSERT_SLOT(AdvertisementWatcher, put_ScanningMode, 12);
TARVIK_ASSERT_SLOT(AdvertisementWatcher, Start, 17);
TARVIK_ASSERT_SLOT(AdvertisementWatcher, Stop, 18);
TARVIK_ASSERT_SLOT(AdvertisementWatcher, add_Received, 19);
TARVIK_ASSERT_SLOT(AdvertisementWatcher, remove_Received, 20);
TARVIK_ASSERT_SLOT(AdvertisementWatcher, add_Stopped, 21);
TARVIK_ASSERT_SLOT(AdvertisementWatcher, remove_Stopped, 22);

// ---------------------------------------------------------------- GATT

enum class CommunicationStatus : std::int32_t { kSuccess = 0 };
enum class DescriptorValue : std::int32_t { kNone = 0, kNotify = 1 };
enum class WriteOption : std::int32_t { kWithoutResponse = 1 };
enum class CacheMode : std::int32_t { kUncached = 1 };

struct ValueChangedEventArgs {
    struct Table {
        Inspectable::Table inspectable;
        Method<ValueChangedEventArgs, Buffer**> get_CharacteristicValue;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(ValueChangedEventArgs, get_CharacteristicValue, 6);

struct Characteristic {
    static constexpr IID kValueChangedIid = {  // TypedEventHandler<Characteristic, EventArgs>
        0xC1F420F6,
        0x6292,
        0x5760,
        {0xA2, 0xC9, 0x9D, 0xDF, 0x98, 0x68, 0x3C, 0xFC}};
    struct Table {
        Inspectable::Table inspectable;
        Unused slots_6_to_10[5];
        Method<Characteristic, GUID*> get_Uuid;
        Unused slots_12_to_16[5];
        Method<Characteristic, Buffer*, WriteOption, AsyncOperation<CommunicationStatus>**>
            WriteValueWithOptionAsync;
        Unused slot_18;
        Method<Characteristic, DescriptorValue, AsyncOperation<CommunicationStatus>**>
            WriteClientCharacteristicConfigurationDescriptorAsync;
        Method<Characteristic, IUnknown*, EventRegistrationToken*> add_ValueChanged;
        Method<Characteristic, EventRegistrationToken> remove_ValueChanged;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(Characteristic, get_Uuid, 11);
TARVIK_ASSERT_SLOT(Characteristic, WriteValueWithOptionAsync, 17);
TARVIK_ASSERT_SLOT(Characteristic, WriteClientCharacteristicConfigurationDescriptorAsync, 19);
TARVIK_ASSERT_SLOT(Characteristic, add_ValueChanged, 20);
TARVIK_ASSERT_SLOT(Characteristic, remove_ValueChanged, 21);

struct CharacteristicsResult {
    struct Table {
        Inspectable::Table inspectable;
        Method<CharacteristicsResult, CommunicationStatus*> get_Status;
        Unused slot_7;
        Method<CharacteristicsResult, Vector<Characteristic>**> get_Characteristics;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(CharacteristicsResult, get_Status, 6);
TARVIK_ASSERT_SLOT(CharacteristicsResult, get_Characteristics, 8);

struct Session {
    struct Table {
        Inspectable::Table inspectable;
        Unused slots_6_to_9[4];
        Method<Session, std::uint16_t*> get_MaxPduSize;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(Session, get_MaxPduSize, 10);

struct Service {
    struct Table {
        Inspectable::Table inspectable;
        Unused slots_6_to_8[3];
        Method<Service, GUID*> get_Uuid;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(Service, get_Uuid, 9);

// A second interface of a service.
struct Service3 {
    static constexpr IID kIid = {
        0xB293A950, 0x0C53, 0x437C, {0xA9, 0xB3, 0x5C, 0x32, 0x10, 0xC6, 0xE5, 0x69}};
    struct Table {
        Inspectable::Table inspectable;
        Unused slot_6;
        Method<Service3, Session**> get_Session;
        Unused slots_8_to_11[4];
        Method<Service3, CacheMode, AsyncOperation<CharacteristicsResult*>**>
            GetCharacteristicsWithCacheModeAsync;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(Service3, get_Session, 7);
TARVIK_ASSERT_SLOT(Service3, GetCharacteristicsWithCacheModeAsync, 12);

struct ServicesResult {
    struct Table {
        Inspectable::Table inspectable;
        Method<ServicesResult, CommunicationStatus*> get_Status;
        Unused slot_7;
        Method<ServicesResult, Vector<Service>**> get_Services;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(ServicesResult, get_Status, 6);
TARVIK_ASSERT_SLOT(ServicesResult, get_Services, 8);

// ---------------------------------------------------------------- device

enum class ConnectionStatus : std::int32_t { kDisconnected = 0 };

struct Device {
    static constexpr wchar_t kClass[] = L"Windows.Devices.Bluetooth.BluetoothLEDevice";
    static constexpr IID kStatusChangedIid = {  // TypedEventHandler<BluetoothLEDevice, Object>
        0xA90661E2,
        0x372E,
        0x5D1E,
        {0xBB, 0xBB, 0xB8, 0xA2, 0xCE, 0x0E, 0x7C, 0x4D}};
    struct Table {
        Inspectable::Table inspectable;
        Unused slots_6_to_8[3];
        Method<Device, ConnectionStatus*> get_ConnectionStatus;
        Unused slots_10_to_15[6];
        Method<Device, IUnknown*, EventRegistrationToken*> add_ConnectionStatusChanged;
        Method<Device, EventRegistrationToken> remove_ConnectionStatusChanged;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(Device, get_ConnectionStatus, 9);
TARVIK_ASSERT_SLOT(Device, add_ConnectionStatusChanged, 16);
TARVIK_ASSERT_SLOT(Device, remove_ConnectionStatusChanged, 17);

// Another interface of a device.
struct Device3 {
    static constexpr IID kIid = {
        0xAEE9E493, 0x44AC, 0x40DC, {0xAF, 0x33, 0xB2, 0xC1, 0x3C, 0x01, 0xCA, 0x46}};
    struct Table {
        Inspectable::Table inspectable;
        Unused slots_6_to_8[3];
        Method<Device3, CacheMode, AsyncOperation<ServicesResult*>**>
            GetGattServicesWithCacheModeAsync;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(Device3, GetGattServicesWithCacheModeAsync, 9);

// The static functions of the class, reached through its factory.
struct DeviceStatics {
    static constexpr IID kIid = {
        0xC8CF1A19, 0xF0B6, 0x4BF0, {0x86, 0x89, 0x41, 0x30, 0x3D, 0xE2, 0xD9, 0xF4}};
    struct Table {
        Inspectable::Table inspectable;
        Unused slot_6;
        Method<DeviceStatics, std::uint64_t, AsyncOperation<Device*>**> FromBluetoothAddressAsync;
    };
    const Table* table;
};
TARVIK_ASSERT_SLOT(DeviceStatics, FromBluetoothAddressAsync, 7);

#undef TARVIK_ASSERT_SLOT

template <>
inline constexpr IID AsyncOperation<Device*>::kCompletedIid = {
    0x9156B79F, 0xC54A, 0x5277, {0x8F, 0x8B, 0xD2, 0xCC, 0x43, 0xC7, 0xE0, 0x04}};
template <>
inline constexpr IID AsyncOperation<ServicesResult*>::kCompletedIid = {
    0x74AB0892, 0xA631, 0x5D6C, {0xB1, 0xB4, 0xBD, 0x2E, 0x1A, 0x74, 0x1A, 0x9B}};
template <>
inline constexpr IID AsyncOperation<CharacteristicsResult*>::kCompletedIid = {
    0xD6A15475, 0x1E72, 0x5C56, {0x98, 0xE8, 0x88, 0xF4, 0xBC, 0x3E, 0x03, 0x13}};
template <>
inline constexpr IID AsyncOperation<CommunicationStatus>::kCompletedIid = {
    0x2154117A, 0x978D, 0x59DB, {0x99, 0xCF, 0x6B, 0x69, 0x0C, 0xB3, 0x38, 0x9B}};

}  // namespace tarvik::winrt
