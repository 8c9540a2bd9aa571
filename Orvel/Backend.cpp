#include <Orvel/Backend.h>

#include <Config/Param.h>
#include <Orvel/BackendState.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>
#include <Orvel/detail/Report.h>

#include <algorithm>
#include <exception>
#include <iostream>

namespace Orvel {

Backend::Backend(World& world, const char* params)
    : world_(world), params_(std::make_unique<Config::ParamLine>()) {
    try {
        params_->setParamLine(params);
    } catch (const std::exception& fault) {
        Diagnostic diagnostic = detail::about(Diagnostic::Code::Parameter, {}, {}, fault.what());
        diagnostic.level = Log::Level::Warning;
        diagnostic.text = std::string("Parameters of a back end: ") + fault.what();
        if (!detail::isHandled(diagnostic)) {
            std::cerr << "ERROR: Backend: Cannot parse parameters" << std::endl;
            ORVEL_LOG(Warning, "Parameters of a back end: %s\n", fault.what());
        }
    }
    labels_ = Config::splitList(params_->getParam("labels", ""));
    world.enter(*this);
}

Backend::Backend(const Backend& other) : world_(other.world_) {
    ORVEL_REPORT(
        Fatal, detail::about(Diagnostic::Code::Misuse), "ERROR: In Backend copy constructor\n");
}

Backend::~Backend() {
    world_.leave(*this);
}

bool Backend::enabled() {
    return enabled_;
}

bool Backend::update() {
    return true;
}

BackendState Backend::state() const {
    return {};
}

bool Backend::hasSameLabel(Emitter& emitter) const {
    const auto& theirs = emitter.labels();
    if (labels_.empty() || theirs.empty()) {
        return true;
    }
    return std::any_of(labels_.begin(), labels_.end(), [&theirs](const std::string& label) {
        return std::find(theirs.begin(), theirs.end(), label) != theirs.end();
    });
}

void Backend::setSourceDuration(Source& source, float duration) {
    source.duration_ = duration;
    world_.setSourceDuration(source);
}

} // namespace Orvel
