#pragma once

#include "serial/PortDeviceClasses.h"

#include <QStringList>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// A Windows machine made of plain data. It fails where it is told to, and it keeps account of every set and key.
class FakeDeviceApi : public DeviceApi
{
public:
    using Number = std::uint32_t;

    /// A value or property. The data is the text, without a zero that is not in it.
    struct Value {
        Number type = stringType;
        std::u16string text;
        Number firstAsk = 0; ///< asked for at first, before the real size, when it is not 0
    };

    struct Node {
        std::u16string identifier;
        Instance parent = 0;
        std::map<std::u16string, Value> values = {};
        std::map<Number, Value> properties = {};
    };

    std::map<Instance, Node> nodes;
    std::array<std::vector<Instance>, portDeviceClasses.size()> classes;
    std::vector<Value> serialComm;

    QStringList calls;
    QString failing;           ///< the operation that fails, or empty for any
    qsizetype failingCall = 0; ///< at which of its calls

    /// Whether each set and key was closed once and none was used afterwards.
    bool isTidy() const { return !misused && opened.empty(); }

    DeviceSet getClassDevs(const Guid& guid, Number flags) override
    {
        std::size_t row = 0;
        while (!(portDeviceClasses.at(row).guid == guid && portDeviceClasses[row].flags == flags)) {
            ++row;
        }
        return {fails(__func__) ? nullptr : open(&classes[row])};
    }
    bool enumDeviceInfo(DeviceSet set, Number index, Device& device) override
    {
        const auto& devices = use<std::vector<Instance>>(set.handle);
        device.instance = index < devices.size() ? devices[index] : 0;
        return !fails(__func__) && device.instance != 0;
    }
    void destroyDeviceInfoList(DeviceSet set) override { close(set.handle); }
    Key openDevRegKey(DeviceSet set, const Device& device) override
    {
        use<std::vector<Instance>>(set.handle);
        return {fails(__func__) ? nullptr : open(&nodes.at(device.instance))};
    }
    Number queryValue(Key key, const char16_t* name, Number& type, char16_t* data, Number& size) override
    {
        const auto& values = use<Node>(key.handle).values;
        return fails(__func__) || !values.contains(name) ? 2 : give(values.at(name), type, data, size);
    }
    void closeKey(Key key) override { close(key.handle); }
    bool getDeviceRegistryProperty(DeviceSet set, const Device& device, Number property, Number& type, char16_t* data,
        Number size, Number& requiredSize) override
    {
        use<std::vector<Instance>>(set.handle);
        const auto& properties = nodes.at(device.instance).properties;
        requiredSize = size;
        propertyError = fails(__func__) || !properties.contains(property) ? 13 : insufficientBuffer;
        return propertyError != 13 && give(properties.at(property), type, data, requiredSize) == success;
    }
    Number lastError() override { return propertyError; }
    Number openKey(const char16_t* path, Key& key) override
    {
        const bool found = !fails(__func__) && path == std::u16string_view(u"HARDWARE\\DEVICEMAP\\SERIALCOMM");
        key.handle = found ? open(&serialComm) : nullptr;
        return found ? success : 2;
    }
    Number enumValue(Key key, Number index, char16_t*, Number& nameLength, char16_t* data, Number& size) override
    {
        const auto& values = use<std::vector<Value>>(key.handle);
        misused = misused || nameLength != 16383;
        return fails(__func__) || index >= values.size() ? 259 : give(values[index], nameLength, data, size);
    }
    Number getDeviceId(Instance instance, char16_t* identifier, Number length) override
    {
        nodes.at(instance).identifier.copy(identifier, length);
        return fails(__func__) ? 26 : success;
    }
    Number getDevNodeStatus(Number&, Number&, Instance) override { return fails(__func__); }
    Number getParent(Instance& parent, Instance instance) override
    {
        parent = nodes.at(instance).parent;
        return fails(__func__);
    }

private:
    bool fails(const char* operation)
    {
        calls += operation;
        const bool counts = failing.isEmpty() || failing == operation;
        return counts && (failing.isEmpty() ? calls.size() : calls.count(operation)) == failingCall;
    }
    void* open(const void* object)
    {
        misused = !opened.insert(object).second || misused;
        return const_cast<void*>(object);
    }
    void close(void* handle) { misused = opened.erase(handle) == 0 || misused; }
    template <typename Object>
    const Object& use(void* handle)
    {
        misused = misused || !opened.contains(handle);
        return *static_cast<const Object*>(handle);
    }
    static Number give(const Value& value, Number& type, char16_t* data, Number& size)
    {
        type = value.type;
        const Number needed = Number(value.text.size() * sizeof(char16_t));
        const Number offered = std::exchange(size, size < value.firstAsk ? value.firstAsk : needed);
        return offered < size ? moreData : (value.text.copy(data, needed), success);
    }

    std::set<const void*> opened;
    Number propertyError = 0;
    bool misused = false;
};
