#include <Show/ShowFile.h>

#include <Show/capture/Capture.h>
#include <Show/check/SceneWarnings.h>
#include <Show/player/ScenePlayable.h>
#include <Show/plot/ScenePlot.h>

#include <utility>

namespace Show {

ShowFile ShowFile::load(const std::string& path, bool fetch) {
    ShowFile file;
    std::vector<Problem> problems;
    file.playable_ = loadPlayable(path, fetch, problems);
    file.problems_ = std::make_shared<const std::vector<Problem>>(std::move(problems));
    return file;
}

ShowFile ShowFile::readScene(std::istream& in, const std::string& name) {
    ShowFile file;
    std::vector<Problem> problems;
    if (auto scene = loadScene(in, name, problems)) {
        file.playable_ = std::make_shared<const ScenePlayable>(std::move(scene));
    }
    file.problems_ = std::make_shared<const std::vector<Problem>>(std::move(problems));
    return file;
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

const std::vector<Problem>& ShowFile::problems() const noexcept {
    return *problems_;
}

std::size_t ShowFile::sources() const noexcept {
    return isGood() ? countSources(playable_->sources()) : 0;
}

std::size_t ShowFile::emitters() const noexcept {
    return isGood() ? playable_->emitters() : 0;
}

ShowFile::Check ShowFile::check() const {
    Check check;
    if (isGood() && !isCapture()) {
        check.warnings = findWarnings(*playable_->scene(), check.seconds);
    }
    return check;
}

std::string ShowFile::picture() const {
    return isGood() && !isCapture() ? drawScene(*playable_->scene(), nullptr) : std::string();
}

} // namespace Show
