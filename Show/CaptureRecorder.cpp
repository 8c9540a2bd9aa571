#include <Show/CaptureRecorder.h>

#include <Show/capture/CaptureWriter.h>
#include <Show/detail/OutputFile.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <system_error>
#include <utility>

namespace Show {

struct CaptureRecorder::State {
    Orvel::Server& server;
    std::string error;
    std::optional<CaptureWriter> writer; // none if the file could not be created
    bool finished = false;
};

CaptureRecorder::CaptureRecorder(Orvel::Server& server, const std::string& path)
    : CaptureRecorder(server, path, Settings()) {}

CaptureRecorder::CaptureRecorder(
    Orvel::Server& server, const std::string& path, const Settings& settings)
    : state_(new State{server, {}, {}}) {
    State& state = *state_;
    std::string scenePath;
    std::ostringstream scene;
    if (!settings.scenePath.empty()) {
        std::error_code error;
        scenePath = std::filesystem::absolute(settings.scenePath, error).string();
        if (!std::filesystem::is_regular_file(scenePath, error)) {
            state.error = "expected a scene file, but \"" + settings.scenePath + "\" is none";
            return;
        }
        scene << std::ifstream(scenePath, std::ios::binary).rdbuf();
    }
    try {
        state.writer.emplace(
            path, scenePath, scene.str(), settings.maxBytes,
            [&state](const std::string& text) { state.error = text; });
        server.setObserver(&*state.writer);
    } catch (const OutputError& fault) {
        state.error = fault.what();
    }
}

CaptureRecorder::~CaptureRecorder() {
    if (state_->writer) {
        state_->server.setObserver(nullptr);
    }
}

bool CaptureRecorder::isRecording() const noexcept {
    return state_->writer && !state_->writer->ended() && !state_->finished;
}

const std::string& CaptureRecorder::error() const noexcept {
    return state_->error;
}

void CaptureRecorder::flush() {
    if (isRecording()) {
        state_->writer->flush();
    }
}

bool CaptureRecorder::finish() {
    if (!state_->writer || std::exchange(state_->finished, true)) {
        return false;
    }
    state_->server.setObserver(nullptr);
    return state_->writer->finish();
}

std::uint64_t CaptureRecorder::events() const noexcept {
    return state_->writer ? state_->writer->events() : 0;
}

double CaptureRecorder::seconds() const {
    return state_->writer ? state_->writer->seconds() : 0.0;
}

} // namespace Show
