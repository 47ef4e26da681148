// An object on the bus with one interface of its own, like those of BlueZ: properties that exist
// only while they are known, and calls that may be answered later.

#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace brennix {

// The error of an operation without a more specific name.
inline constexpr const char* kFailed = "org.bluez.Error.Failed";

class BusObject {
public:
    using Value = std::variant<bool, std::int16_t, std::uint16_t, std::string, sdbus::ObjectPath,
                               std::vector<std::string>, std::vector<std::uint8_t>>;
    using Values = std::map<std::string, Value>;
    struct Method {
        const char* name;
        const char* input;   // D-Bus signature
        const char* output;  // D-Bus signature
        // May keep the call and answer later. An sdbus::Error that it throws is the answer.
        std::function<void(sdbus::MethodCall call)> handler;
    };

    // Announces the object at once; the destructor withdraws it.
    BusObject(sdbus::IConnection* connection, std::string path, std::string interface,
              std::vector<Method> methods, Values values);
    ~BusObject();
    BusObject(const BusObject&) = delete;
    BusObject& operator=(const BusObject&) = delete;

    const std::string& Path() const { return path_; }
    const Value* Find(const std::string& name) const;
    // Signals all of them in one PropertiesChanged, changed or not. If one of them did not exist
    // before, not allowed inside the object's own methods.
    void Set(const Values& values);
    // Signals it as invalidated, if it existed.
    void Remove(const std::string& name);

private:
    void Register();
    void Signal(const Values& changed, const std::vector<std::string>& invalidated);

    sdbus::IConnection* connection_;
    const std::string path_;
    const std::string interface_;
    const std::vector<Method> methods_;
    Values values_;
    std::unique_ptr<sdbus::IObject> object_;
};

// Answers a kept call, even if nobody waits for it any more.
void Answer(const sdbus::MethodCall& call);
void AnswerError(const sdbus::MethodCall& call, const std::string& name, const std::string& text);

}  // namespace brennix
