#pragma once

#include <array>
#include <cstdint>

/// What the list of ports asks of Windows: one operation for each function of the system, named after it, with the
/// arguments that matter and plain types, so that plain data can stand for a machine. Text is UTF-16, sizes are bytes
/// where they are not called lengths.
class DeviceApi
{
public:
    struct Guid {
        std::uint32_t data1;
        std::uint16_t data2;
        std::uint16_t data3;
        std::array<std::uint8_t, 8> data4;

        bool operator==(const Guid&) const = default;
    };

    /// A node of the device tree.
    using Instance = std::uint32_t;

    /// A device of a set, as the system filled its record.
    struct Device {
        Guid classGuid = {};
        Instance instance = 0;
        std::uintptr_t reserved = 0;
    };

    /// Null stands for the handle that the system calls invalid.
    struct DeviceSet {
        void* handle = nullptr;
    };

    /// Null stands for the handle that the system calls invalid.
    struct Key {
        void* handle = nullptr;
    };

    static constexpr std::uint32_t success = 0;
    static constexpr std::uint32_t insufficientBuffer = 122;
    static constexpr std::uint32_t moreData = 234;

    // Types of registry values and of device properties: REG_SZ, REG_EXPAND_SZ, REG_DWORD.
    static constexpr std::uint32_t stringType = 1;
    static constexpr std::uint32_t expandableStringType = 2;
    static constexpr std::uint32_t numberType = 4;

    DeviceApi() = default;
    DeviceApi(const DeviceApi&) = delete;
    DeviceApi(DeviceApi&&) = delete;
    DeviceApi& operator=(const DeviceApi&) = delete;
    DeviceApi& operator=(DeviceApi&&) = delete;
    virtual ~DeviceApi() = default;

    /// SetupDiGetClassDevsW. A set that was obtained is given back to `destroyDeviceInfoList` once.
    virtual DeviceSet getClassDevs(const Guid& classGuid, std::uint32_t flags) = 0;

    /// SetupDiEnumDeviceInfo. @return false behind the last device, and on failure.
    virtual bool enumDeviceInfo(DeviceSet set, std::uint32_t index, Device& device) = 0;

    /// SetupDiDestroyDeviceInfoList.
    virtual void destroyDeviceInfoList(DeviceSet set) = 0;

    /// SetupDiOpenDevRegKey, for reading, on the device's hardware settings. A key that was opened is given back to
    /// `closeKey` once.
    virtual Key openDevRegKey(DeviceSet set, const Device& device) = 0;

    /// RegQueryValueExW. @param size the room at `data`; becomes the size of the value
    /// @return `success`, `moreData` or another error code
    virtual std::uint32_t queryValue(
        Key key, const char16_t* name, std::uint32_t& type, char16_t* data, std::uint32_t& size) = 0;

    /// RegCloseKey.
    virtual void closeKey(Key key) = 0;

    /// SetupDiGetDeviceRegistryPropertyW. @param requiredSize becomes the size of the property
    /// @return false on failure; `lastError` tells which
    virtual bool getDeviceRegistryProperty(DeviceSet set, const Device& device, std::uint32_t property,
        std::uint32_t& type, char16_t* data, std::uint32_t size, std::uint32_t& requiredSize) = 0;

    /// GetLastError, for `getDeviceRegistryProperty`.
    virtual std::uint32_t lastError() = 0;

    /// RegOpenKeyExW, for querying values, below HKEY_LOCAL_MACHINE. A key that was opened is given back to `closeKey`
    /// once. @return `success` or an error code
    virtual std::uint32_t openKey(const char16_t* path, Key& key) = 0;

    /// RegEnumValueW. @param nameLength the room at `name`, in characters; becomes the length of the name
    /// @param size the room at `data`; becomes the size of the value
    /// @return `success`, `moreData` or another error code
    virtual std::uint32_t enumValue(Key key, std::uint32_t index, char16_t* name, std::uint32_t& nameLength,
        char16_t* data, std::uint32_t& size) = 0;

    /// CM_Get_Device_IDW. @param length the room at `identifier`, in characters @return `success` or an error code
    virtual std::uint32_t getDeviceId(Instance instance, char16_t* identifier, std::uint32_t length) = 0;

    /// CM_Get_DevNode_Status. @return `success` or an error code
    virtual std::uint32_t getDevNodeStatus(std::uint32_t& status, std::uint32_t& problem, Instance instance) = 0;

    /// CM_Get_Parent. @return `success` or an error code
    virtual std::uint32_t getParent(Instance& parent, Instance instance) = 0;
};
