#pragma once

#include <Orvel/SoundFile.h>
#include <Orvel/WorldPart.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Corvid {
class URL;
}

namespace Orvel {

class Emitter;

/// A sound: PCM samples or a URL, a loop flag, a pitch factor, a play state, and, once a back end
/// has measured it, a duration. Created by `World::createSource`; any number of emitters may play
/// it. No setter checks the range of its values.
///
/// Confined to one thread at a time, together with its world. Its destructor notifies the back
/// ends, then disconnects its emitters.
class ORVEL_EXPORT Source : public WorldPart {
public:
    /// The current form of the data: none yet, `url()`, or `data()` with its format.
    enum DataKind : int { NO_SD = 0, URL_SD = 1, PCM_SD = 2 };

    /// Adds itself to the world's map, in place of any source with that id, and notifies no back
    /// end; hosts call World::createSource instead.
    Source(World& world, int id);
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    ~Source() override;

    /// Also sets the state of every connected emitter, in ascending order of their ids.
    void setState(State state) override;

    /// `pitch` is a factor on the playing speed, 1 as recorded. Always notifies the back ends.
    void setParam(bool loop, float pitch);

    /// Copies `size` bytes of interleaved PCM samples; `sampleRate` in Hz. Back ends support 8
    /// (unsigned) or 16 bits (signed, little endian) and 1 or 2 channels. A null pointer or size 0
    /// empties the source and logs. The back ends are notified in any case. Each call writes a line
    /// to standard error.
    void setData(
        unsigned int sampleRate, unsigned int bitsPerSample, unsigned int channels,
        const unsigned char* data, unsigned int size);

    /// Sets the resource that back ends fetch the sound from: an absolute URL, or the path of a
    /// file, relative to the current directory. Throws Corvid::URLImpl::Exception ("Cannot parse
    /// URL"); the source then has no URL and no back end is notified.
    void setDataFromURL(const std::string& url);
    /// The same, with the choice of Channels::Mono: the kind "voices" then mixes all channels of
    /// the sound to one, and so places it. The other kinds keep to their rules.
    void setDataFromURL(const std::string& url, SoundFile::Channels channels);

    /// Writes the PCM samples to a WAV file, for debugging. A failure is only logged.
    void dumpWavFile(const std::string& fileName) const;

    [[nodiscard]] DataKind dataKind() const noexcept { return dataKind_; }
    [[nodiscard]] unsigned int sampleRate() const noexcept { return sampleRate_; }
    [[nodiscard]] unsigned int bitsPerSample() const noexcept { return bitsPerSample_; }
    [[nodiscard]] unsigned int channels() const noexcept { return channels_; }
    [[nodiscard]] const std::vector<unsigned char>& data() const noexcept { return data_; }
    [[nodiscard]] float pitch() const noexcept { return pitch_; }
    /// Duration in seconds at pitch 1, as measured by a back end; 0 until then.
    [[nodiscard]] float duration() const noexcept { return duration_; }
    [[nodiscard]] bool loop() const noexcept { return loop_; }
    /// Null before setDataFromURL; owned by the source and replaced by the next call.
    [[nodiscard]] const Corvid::URL* url() const noexcept { return url_.get(); }
    /// Of the latest setDataFromURL.
    [[nodiscard]] SoundFile::Channels urlChannels() const noexcept { return urlChannels_; }
    [[nodiscard]] const std::map<int, Emitter*>& connectedEmitters() const noexcept {
        return connectedEmitters_;
    }

private:
    friend class Backend; // setSourceDuration
    friend class Emitter; // connectedEmitters_

    DataKind dataKind_ = NO_SD;
    unsigned int sampleRate_ = 0;
    unsigned int bitsPerSample_ = 0;
    unsigned int channels_ = 0;
    std::vector<unsigned char> data_;
    float pitch_ = 1.0F;
    float duration_ = 0.0F;
    bool loop_ = false;
    std::unique_ptr<Corvid::URL> url_;
    SoundFile::Channels urlChannels_ = SoundFile::Channels::Keep;
    std::map<int, Emitter*> connectedEmitters_;
};

} // namespace Orvel
