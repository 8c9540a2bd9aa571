#include <Orvel/BackendType.h>

#include <Orvel/BackendFactory.h>
#include <Orvel/detail/Report.h>

namespace Orvel {

BackendType::BackendType(
    const std::string& name, CreateFunction createFunction, const char* description,
    std::span<const Config::Param> params)
    : name_(name), createFunction_(createFunction), description_(description), params_(params) {
    BackendFactory::addBackendType(this);
}

// NOLINTNEXTLINE(bugprone-copy-constructor-init): a copy is empty on purpose
BackendType::BackendType(const BackendType& /*other*/) {
    ORVEL_REPORT(
        Fatal, detail::about(Diagnostic::Code::Misuse), "In BackendType copy constructor\n");
}

BackendType::~BackendType() {
    BackendFactory::removeBackendType(this);
}

Backend* BackendType::createBackend(World& world, const char* params) const {
    return createFunction_ == nullptr ? nullptr : createFunction_(world, params);
}

} // namespace Orvel
