#include <Orvel/Source.h>

#include <Corvid/URL.h>
#include <Orvel/Emitter.h>
#include <Orvel/World.h>
#include <Orvel/detail/Report.h>

#include <cstdint>
#include <fstream>
#include <iostream>

namespace Orvel {

namespace {

void appendText(std::string& header, const char* text) {
    header += text;
}

void appendNumber(std::string& header, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        header += static_cast<char>((value >> (8 * i)) & 0xFFU);
    }
}

} // namespace

Source::Source(World& world, int id) : WorldPart(world, id) {
    world.enter(*this);
}

Source::~Source() {
    world().destroySource(*this);
    while (!connectedEmitters_.empty()) {
        connectedEmitters_.begin()->second->setSource(nullptr);
    }
    world().leave(*this);
}

void Source::setState(State state) {
    if (!changeState(state)) {
        return;
    }
    world().setSourceState(*this);
    for (const auto& [id, emitter] : connectedEmitters_) {
        if (emitter != nullptr) {
            emitter->setState(state);
        }
    }
}

void Source::setParam(bool loop, float pitch) {
    loop_ = loop;
    pitch_ = pitch;
    world().setSourceParam(*this);
}

void Source::setData(
    unsigned int sampleRate, unsigned int bitsPerSample, unsigned int channels,
    const unsigned char* data, unsigned int size) {
    Diagnostic diagnostic = detail::about(Diagnostic::Code::SoundSet, *this);
    diagnostic.level = Log::Level::Log;
    diagnostic.text = "Source::setData call";
    if (!detail::isHandled(diagnostic)) {
        std::cerr << "Source::setData call" << std::endl;
    }
    dataKind_ = PCM_SD;
    if (data != nullptr && size != 0) {
        sampleRate_ = sampleRate;
        bitsPerSample_ = bitsPerSample;
        channels_ = channels;
        // A new block instead of assign(): exactly this size, and `data` may alias the old one.
        data_ = std::vector<unsigned char>(data, data + size);
    } else {
        sampleRate_ = 0;
        bitsPerSample_ = 0;
        channels_ = 0;
        data_.clear();
        data_.shrink_to_fit();
        ORVEL_REPORT(
            Log, detail::about(Diagnostic::Code::CannotPlay, *this),
            "Invalid data in Orvel::Source::setData()\n");
    }
    world().setSourceData(*this);
}

void Source::setDataFromURL(const std::string& url) {
    setDataFromURL(url, SoundFile::Channels::Keep);
}

void Source::setDataFromURL(const std::string& url, SoundFile::Channels channels) {
    dataKind_ = URL_SD;
    urlChannels_ = channels;
    url_.reset();
    url_ = std::make_unique<Corvid::URL>(url);
    world().setSourceData(*this);
}

void Source::dumpWavFile(const std::string& fileName) const {
    std::ofstream file(fileName, std::ios::binary | std::ios::trunc);
    ORVEL_LOG(Log, "Dump PCM data to %s\n", fileName.c_str());
    if (!file) {
        return;
    }
    const auto size = static_cast<std::uint32_t>(data_.size());
    const std::uint32_t blockAlign = (bitsPerSample_ + 7) / 8 * channels_;
    std::string header;
    appendText(header, "RIFF");
    appendNumber(header, size + 36, 4);
    appendText(header, "WAVEfmt ");
    appendNumber(header, 16, 4);
    appendNumber(header, 1, 2);
    appendNumber(header, channels_, 2);
    appendNumber(header, sampleRate_, 4);
    appendNumber(header, sampleRate_ * blockAlign, 4);
    appendNumber(header, blockAlign, 2);
    appendNumber(header, bitsPerSample_, 2);
    appendText(header, "data");
    appendNumber(header, size, 4);
    file.write(header.data(), static_cast<std::streamsize>(header.size()));
    file.write(
        reinterpret_cast<const char*>(data_.data()), static_cast<std::streamsize>(data_.size()));
}

} // namespace Orvel
