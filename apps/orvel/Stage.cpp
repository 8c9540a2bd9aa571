#include "Stage.h"

#include "Command.h"

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>

#include <utility>

namespace OrvelTool {

namespace {

/// Names what the library is busy with, for as long as it lives.
class Subject {
public:
    Subject(LibraryMessages& messages, std::string text) : messages_(messages) {
        messages_.setSubject(std::move(text));
    }
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;
    ~Subject() { messages_.setSubject({}); }

private:
    LibraryMessages& messages_;
};

} // namespace

Stage::Stage(const Scene& scene, LibraryMessages& messages)
    : path_(scene.path), messages_(messages) {
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

Stage::~Stage() {
    clearWorld();
    deleteAllBackends();
}

std::string Stage::subject(const Orvel::Source& source) const {
    const auto found = sounds_.find(source.id());
    if (found == sounds_.end() || found->second.line == 0) {
        return path_ + ": source " + std::to_string(source.id());
    }
    const Where& where = found->second;
    return path_ + ":" + std::to_string(where.line) + ": " + where.field;
}

void Stage::createSource(Orvel::Source& source) {
    const Subject subject(messages_, this->subject(source));
    World::createSource(source);
}

void Stage::setSourceData(Orvel::Source& source) {
    const Subject subject(messages_, this->subject(source));
    World::setSourceData(source);
}

void Stage::createEmitter(Orvel::Emitter& emitter) {
    const Subject subject(messages_, path_ + ": emitter " + std::to_string(emitter.id()));
    World::createEmitter(emitter);
}

bool Stage::tell() {
    const auto texts = messages_.take();
    for (const std::string& text : texts) {
        complain(text);
    }
    return !texts.empty();
}

} // namespace OrvelTool
