#pragma once

#include "serial/PortDeviceClasses.h"

#include <QStringList>

#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <vector>

/// A Windows machine made of plain data. It fails where it is told to, and it keeps account of every set and key.
class FakeDeviceApi : public DeviceApi
{
public:
    /// A value or property. The data is the text, without a zero that is not in it.
    struct Value {
        std::uint32_t type = stringType;
        std::u16string text;
        std::uint32_t firstAsk = 0; ///< asked for at first, before the real size, when it is not 0
    };

    struct Node {
        std::u16string identifier;
        Instance parent = 0;
        std::map<std::u16string, Value> values = {};
        std::map<std::uint32_t, Value> properties = {};
    };

    std::map<Instance, Node> nodes;
    std::array<std::vector<Instance>, portDeviceClasses.size()> classes;
    std::vector<Value> serialComm;

    QStringList calls;
    QString failing;           ///< the operation that fails, or empty for any
    qsizetype failingCall = 0; ///< at which of its calls

    /// Whether each set and key was closed once and none was used afterwards.
    bool isTidy() const
    {
        return !misused && std::none_of(handles.begin(), handles.end(), [](const Handle& h) { return h.isOpen; });
    }

    DeviceSet getClassDevs(const Guid& guid, std::uint32_t flags) override
    {
        std::size_t row = 0;
        while (!(portDeviceClasses.at(row).guid == guid && portDeviceClasses[row].flags == flags))
            ++row;
        return {fails(__func__) ? nullptr : &handles.emplace_back(Handle{&classes[row]})};
    }
    bool enumDeviceInfo(DeviceSet set, std::uint32_t index, Device& device) override
    {
        const auto& devices = *use(set.handle).devices;
        const bool given = !fails(__func__) && index < devices.size();
        device.instance = given ? devices[index] : 0;
        return given;
    }
    void destroyDeviceInfoList(DeviceSet set) override { use(set.handle).isOpen = false; }
    Key openDevRegKey(DeviceSet set, const Device& device) override
    {
        use(set.handle);
        return {fails(__func__) ? nullptr : &handles.emplace_back(Handle{nullptr, &nodes.at(device.instance)})};
    }
    std::uint32_t queryValue(
        Key key, const char16_t* name, std::uint32_t& type, char16_t* data, std::uint32_t& size) override
    {
        const auto& values = use(key.handle).node->values;
        return fails(__func__) || !values.contains(name) ? 2 : give(values.at(name), type, data, size);
    }
    void closeKey(Key key) override { use(key.handle).isOpen = false; }
    bool getDeviceRegistryProperty(DeviceSet set, const Device& device, std::uint32_t property, std::uint32_t& type,
        char16_t* data, std::uint32_t size, std::uint32_t& requiredSize) override
    {
        use(set.handle);
        const auto& properties = nodes.at(device.instance).properties;
        requiredSize = size;
        propertyError = fails(__func__) || !properties.contains(property) ? 13 : insufficientBuffer;
        return propertyError != 13 && give(properties.at(property), type, data, requiredSize) == success;
    }
    std::uint32_t lastError() override { return propertyError; }
    std::uint32_t openKey(const char16_t* path, Key& key) override
    {
        if (fails(__func__) || path != std::u16string_view(u"HARDWARE\\DEVICEMAP\\SERIALCOMM"))
            return 2;
        key.handle = &handles.emplace_back();
        return success;
    }
    std::uint32_t enumValue(Key key, std::uint32_t index, char16_t*, std::uint32_t& nameLength, char16_t* data,
        std::uint32_t& size) override
    {
        use(key.handle);
        misused = misused || nameLength != 16383;
        nameLength = 1;
        std::uint32_t type = 0;
        return fails(__func__) || index >= serialComm.size() ? 259 : give(serialComm[index], type, data, size);
    }
    std::uint32_t getDeviceId(Instance instance, char16_t* identifier, std::uint32_t length) override
    {
        nodes.at(instance).identifier.copy(identifier, length);
        return fails(__func__) ? 26 : success;
    }
    std::uint32_t getDevNodeStatus(std::uint32_t&, std::uint32_t&, Instance) override { return fails(__func__); }
    std::uint32_t getParent(Instance& parent, Instance instance) override
    {
        parent = nodes.at(instance).parent;
        return fails(__func__);
    }

private:
    struct Handle {
        const std::vector<Instance>* devices = nullptr;
        const Node* node = nullptr;
        bool isOpen = true;
    };

    bool fails(const char* operation)
    {
        calls += operation;
        return failing.isEmpty() ? calls.size() == failingCall
                                 : failing == operation && calls.count(operation) == failingCall;
    }
    Handle& use(void* handle)
    {
        misused = misused || !static_cast<Handle*>(handle)->isOpen;
        return *static_cast<Handle*>(handle);
    }
    static std::uint32_t give(const Value& value, std::uint32_t& type, char16_t* data, std::uint32_t& size)
    {
        type = value.type;
        const std::size_t needed = value.text.size() * sizeof(char16_t);
        const std::uint32_t offered = size;
        size = offered < value.firstAsk ? value.firstAsk : static_cast<std::uint32_t>(needed);
        if (offered >= size)
            std::memcpy(data, value.text.data(), needed);
        return offered < size ? moreData : success;
    }

    std::deque<Handle> handles;
    std::uint32_t propertyError = 0;
    bool misused = false;
};
