#include <Show/ShowFile.h>

#include <Show/capture/Capture.h>
#include <Show/check/SceneWarnings.h>
#include <Show/player/ScenePlayable.h>
#include <Show/plot/ScenePlot.h>
#include <Show/scene/PartNames.h>

#include <Config/ParamLine.h>
#include <Corvid/URL.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>
#include <variant>

namespace Show {

namespace {

bool isMissing(const std::string& path) {
    std::error_code error;
    return std::filesystem::status(path, error).type() == std::filesystem::file_type::not_found;
}

/// The path of a file URL; empty for any other URL.
std::string fileOf(const std::string& url) {
    try {
        return url.starts_with("file:") ? Corvid::URL(url).fetch()->name() : "";
    } catch (const Corvid::URLImpl::Exception&) {
        return {}; // cannot be read
    }
}

} // namespace

static_assert(ShowFile::kMaxSeconds == Show::kMaxSeconds);

ShowFile::ShowFile(std::shared_ptr<const Playable> playable, std::vector<Problem> problems)
    : playable_(std::move(playable)),
      names_(
          playable_ == nullptr ? std::make_shared<const PartNames>()
                               : std::make_shared<const PartNames>(playable_->sources())),
      problems_(std::make_shared<const std::vector<Problem>>(std::move(problems))) {}

ShowFile::ShowFile() : ShowFile(nullptr, {}) {}

ShowFile ShowFile::load(const std::string& path, bool fetch) {
    std::vector<Problem> problems;
    auto playable = loadPlayable(path, fetch, problems);
    return {std::move(playable), std::move(problems)};
}

ShowFile ShowFile::readScene(std::istream& in, const std::string& name) {
    std::vector<Problem> problems;
    auto scene = loadScene(in, name, problems);
    return {
        scene == nullptr ? nullptr : std::make_shared<const ScenePlayable>(std::move(scene)),
        std::move(problems)};
}

std::string ShowFile::missingFile(const std::string& path) {
    if (isMissing(path)) {
        return path;
    }
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    std::vector<Problem> problems;
    const auto scene = parseScene(text.str(), path, problems);
    std::string missing;
    if (scene) {
        visitSounds(*scene, [&missing](const Sound& sound) {
            const auto* found = std::get_if<SoundFile>(&sound);
            if (missing.empty() && found != nullptr && isMissing(found->path)) {
                missing = found->path;
            }
        });
    }
    return missing;
}

bool ShowFile::isGood() const noexcept {
    return playable_ != nullptr;
}

bool ShowFile::isCapture() const noexcept {
    return isGood() && playable_->scene() == nullptr;
}

bool ShowFile::isComplete() const noexcept {
    return isGood() && !playable_->incomplete();
}

std::size_t ShowFile::unfetched() const noexcept {
    return isGood() ? playable_->unfetched() : 0;
}

const std::vector<Problem>& ShowFile::problems() const noexcept {
    return *problems_;
}

std::size_t ShowFile::sources() const noexcept {
    return isGood() ? countSources(playable_->sources()) : 0;
}

std::size_t ShowFile::emitters() const noexcept {
    return isGood() ? playable_->emitters() : 0;
}

std::string ShowFile::voicesParams() const {
    return "voices=" + std::to_string(voicesFor(emitters())) +
           (isGood() ? ' ' + playable_->voicesParams() : "");
}

const Orvel::OutputLayout& ShowFile::layout(const std::string& params) const {
    Config::ParamLine line;
    line.setParamLine((voicesParams() + ' ' + params).c_str());
    const Orvel::OutputLayout* layout = Orvel::findOutputLayout(line.getParam("output", ""));
    return layout == nullptr ? Orvel::kOutputLayouts[0] : *layout;
}

std::vector<Cue> ShowFile::cues() const {
    std::vector<Cue> cues;
    if (isGood() && !isCapture()) {
        const auto& specs = playable_->scene()->scene.cues;
        cues.assign(specs.begin(), specs.end());
    }
    return cues;
}

std::vector<std::string> ShowFile::soundFiles() const {
    std::vector<std::string> paths;
    if (isGood()) {
        visitSounds(playable_->sources(), [&paths](const Sound& sound) {
            const auto* file = std::get_if<SoundFile>(&sound);
            const auto* url = std::get_if<SoundUrl>(&sound);
            std::string path = file != nullptr ? file->path : url ? fileOf(url->text) : "";
            if (!path.empty()) {
                paths.push_back(std::move(path));
            }
        });
    }
    return paths;
}

std::string ShowFile::nameOf(const Orvel::Diagnostic::Part& part) const {
    return (*names_)(part);
}

ShowFile::Check ShowFile::check() const {
    Check check;
    if (isGood() && !isCapture()) {
        check.warnings = findWarnings(*playable_->scene(), check.seconds);
    }
    return check;
}

std::string ShowFile::picture(const LevelMeter* levels) const {
    return isGood() && !isCapture() ? drawScene(*playable_->scene(), levels) : std::string();
}

} // namespace Show
