#include "bluez/bus_object.h"

#include <algorithm>

namespace brennix {

namespace {

std::string SignatureOf(const BusObject::Value& value) {
    return std::visit(
        [](const auto& held) { return sdbus::signature_of<std::decay_t<decltype(held)>>::str(); },
        value);
}

sdbus::Variant ToVariant(const BusObject::Value& value) {
    return std::visit([](const auto& held) { return sdbus::Variant(held); }, value);
}

}  // namespace

BusObject::BusObject(sdbus::IConnection* connection, std::string path, std::string interface,
                     std::vector<Method> methods, Values values)
    : connection_(connection),
      path_(std::move(path)),
      interface_(std::move(interface)),
      methods_(std::move(methods)),
      values_(std::move(values)) {
    Register();
    object_->emitInterfacesAddedSignal();
}

BusObject::~BusObject() {
    try {
        object_->emitInterfacesRemovedSignal({interface_});
    } catch (const sdbus::Error&) {
        // The bus is already gone: nobody is left to notify.
    }
}

void BusObject::Register() {
    object_.reset();
    object_ = sdbus::createObject(*connection_, path_);
    for (const Method& method : methods_) {
        object_->registerMethod(interface_, method.name, method.input, method.output,
                                method.handler, {});
    }
    for (const auto& [name, value] : values_) {
        const sdbus::property_get_callback get = [this,
                                                  name = name](sdbus::PropertyGetReply& reply) {
            std::visit([&reply](const auto& held) { reply << held; }, values_.at(name));
        };
        object_->registerProperty(interface_, name, SignatureOf(value), get, sdbus::Flags());
    }
    object_->finishRegistration();
}

const BusObject::Value* BusObject::Find(const std::string& name) const {
    const auto found = values_.find(name);
    return found == values_.end() ? nullptr : &found->second;
}

void BusObject::Set(const Values& values) {
    const std::size_t known = values_.size();
    for (const auto& [name, value] : values)
        values_.insert_or_assign(name, value);
    if (values_.size() != known) Register();
    Signal(values, {});
}

void BusObject::Remove(const std::string& name) {
    if (values_.erase(name) == 0) return;
    Register();
    Signal({}, {name});
}

void BusObject::Signal(const Values& changed, const std::vector<std::string>& invalidated) {
    std::map<std::string, sdbus::Variant> variants;
    for (const auto& [name, value] : changed)
        variants.emplace(name, ToVariant(value));
    sdbus::Signal signal =
        object_->createSignal("org.freedesktop.DBus.Properties", "PropertiesChanged");
    signal << interface_ << variants << invalidated;
    object_->emitSignal(signal);
}

void Answer(const sdbus::MethodCall& call) { call.createReply().send(); }

void AnswerError(const sdbus::MethodCall& call, const std::string& name, const std::string& text) {
    call.createErrorReply(sdbus::Error(name, text)).send();
}

}  // namespace brennix
