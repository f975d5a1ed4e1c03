#pragma once

#include "serial/DeviceApi.h"

/// The functions of Windows themselves.
class DeviceApiWin final : public DeviceApi
{
public:
    DeviceSet getClassDevs(const Guid& classGuid, std::uint32_t flags) override;
    bool enumDeviceInfo(DeviceSet set, std::uint32_t index, Device& device) override;
    void destroyDeviceInfoList(DeviceSet set) override;
    Key openDevRegKey(DeviceSet set, const Device& device) override;
    std::uint32_t queryValue(
        Key key, const char16_t* name, std::uint32_t& type, char16_t* data, std::uint32_t& size) override;
    void closeKey(Key key) override;
    bool getDeviceRegistryProperty(DeviceSet set, const Device& device, std::uint32_t property, std::uint32_t& type,
        char16_t* data, std::uint32_t size, std::uint32_t& requiredSize) override;
    std::uint32_t lastError() override;
    std::uint32_t openKey(const char16_t* path, Key& key) override;
    std::uint32_t enumValue(Key key, std::uint32_t index, char16_t* name, std::uint32_t& nameLength, char16_t* data,
        std::uint32_t& size) override;
    std::uint32_t getDeviceId(Instance instance, char16_t* identifier, std::uint32_t length) override;
    std::uint32_t getDevNodeStatus(std::uint32_t& status, std::uint32_t& problem, Instance instance) override;
    std::uint32_t getParent(Instance& parent, Instance instance) override;
};
