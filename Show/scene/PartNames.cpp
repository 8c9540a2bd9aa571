#include <Show/scene/PartNames.h>

#include <variant>

namespace Show {

PartNames::PartNames(const Scene& scene) : path_(scene.path) {
    for (const SourceSpec& source : scene.sources) {
        sounds_[source.id] = source.soundWhere;
    }
    for (const Change& change : scene.timeline) {
        const bool another = !std::holds_alternative<std::monostate>(change.sound);
        if (change.newSource || (change.target == Change::Target::Source && another)) {
            sounds_.erase(change.id);
        }
    }
}

std::string PartNames::operator()(const Orvel::Diagnostic::Part& part) const {
    using Kind = Orvel::Diagnostic::Part::Kind;
    if (part.kind == Kind::None) {
        return {};
    }
    const auto found = sounds_.find(part.id);
    if (part.kind == Kind::Source && found != sounds_.end() && found->second.line != 0) {
        return path_ + ":" + std::to_string(found->second.line) + ": " + found->second.field;
    }
    return (path_.empty() ? "" : path_ + ": ") +
           (part.kind == Kind::Source ? "source " : "emitter ") + std::to_string(part.id);
}

} // namespace Show
