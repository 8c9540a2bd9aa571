#include <Orvel/BackendFactory.h>

#include <Orvel/BackendType.h>
#include <Orvel/detail/Report.h>

#include <iostream>

namespace Orvel {

std::map<std::string, BackendType*>* BackendFactory::_backendTypeMap = nullptr;

Backend* BackendFactory::createBackend(World& world, const std::string& name, const char* params) {
    const BackendType* kind = type(name);
    Backend* backend = kind == nullptr ? nullptr : kind->createBackend(world, params);
    if (backend == nullptr) {
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::UnknownKind, {}, name),
            "Unknown Orvel backend %s; can not create\n", name.c_str());
    }
    return backend;
}

const BackendType* BackendFactory::type(const std::string& name) {
    if (_backendTypeMap == nullptr) {
        return nullptr;
    }
    const auto found = _backendTypeMap->find(name == "default" ? "openal" : name);
    return found == _backendTypeMap->end() ? nullptr : found->second;
}

void BackendFactory::addBackendType(BackendType* type) {
    if (type == nullptr) {
        return;
    }
    if (_backendTypeMap == nullptr) {
        _backendTypeMap = new std::map<std::string, BackendType*>;
    }
    if (!_backendTypeMap->emplace(type->name(), type).second) {
        ORVEL_REPORT(
            Warning, detail::about(Diagnostic::Code::UnknownKind, {}, type->name()),
            "There is already a backend %s, skip reg.\n", type->name().c_str());
    }
}

void BackendFactory::removeBackendType(BackendType* type) {
    if (_backendTypeMap == nullptr || _backendTypeMap->erase(type->name()) == 0) {
        return;
    }
    if (_backendTypeMap->empty()) {
        delete _backendTypeMap;
        _backendTypeMap = nullptr;
    }
}

void BackendFactory::printTypes() {
    std::cout << "TypeList: " << std::endl;
    for (const std::string& name : names()) {
        std::cout << name << std::endl;
    }
}

std::vector<std::string> BackendFactory::names() {
    std::vector<std::string> names;
    if (_backendTypeMap != nullptr) {
        for (const auto& [name, type] : *_backendTypeMap) {
            names.push_back(name);
        }
    }
    return names;
}

} // namespace Orvel
