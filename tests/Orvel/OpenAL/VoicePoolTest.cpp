// Streams of the kind "voices" whose reader is late. The time is that of the frames rendered.
#include "NoiseFile.h"
#include "Sound.h"

#include <Corvid/URL.h>
#include <Orvel/detail/voices/VoiceOutput.h>
#include <Orvel/detail/voices/VoicePool.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <support/TemporaryFolder.h>

namespace Orvel::Test {

using detail::Playhead;
using detail::Sound;
using detail::SoundStream;
using detail::VoiceOutput;
using detail::VoicePool;

namespace {

constexpr unsigned kRate = 44100;

/// A pool that plays one sound.
class Player {
public:
    Player(const std::shared_ptr<Sound>& played, double from, float pitch) {
        const auto frame = std::llround(from * played->rate());
        const Playhead head{
            frame * Playhead::kOne, 0, Playhead::stepOf(pitch, played->rate(), kRate)};
        pool_.start(played, {.attenuated = false, .pitch = pitch}, head, 1.0F, 0);
    }
    /// Hears so much, while the reader reads or stands. Returns whether all of it had sound.
    bool hear(double seconds, bool reads) {
        bool sounds = true;
        for (const auto end = sound.size() + 2 * static_cast<std::size_t>(seconds * kRate);
             sound.size() < end;) {
            if (reads && stream_ != nullptr) {
                stream_->fill(); // one chunk in each block
            }
            pool_.advance(static_cast<std::int64_t>(sound.size() / 2), kBlock);
            Stereo block(2 * std::size_t{kBlock});
            output_->render(block.data(), kBlock);
            sounds = sounds && level(block, 0) > -60.0;
            sound.insert(sound.end(), block.begin(), block.end());
        }
        return sounds;
    }
    [[nodiscard]] std::uint64_t gaps() const { return pool_.gaps(); }

    Stereo sound;

private:
    static constexpr unsigned kBlock = 256;

    std::unique_ptr<VoiceOutput> output_ = VoiceOutput::openOffline({.rate = kRate, .voices = 1});
    VoiceOutput::Use use_{output_.get()};
    std::shared_ptr<SoundStream> stream_;
    VoicePool pool_{
        {.voices = 1, .rate = kRate, .reader = [this](const auto& stream) { stream_ = stream; }}};
};

} // namespace

TEST(VoicePool, HearsNoGapWhileTheReaderStandsFor100ms) {
    const TemporaryFolder folder;
    const struct {
        unsigned rate;
        double from; // beyond what is kept in memory, the reader is needed to start
        float pitch;
    } rows[] = {{44100, 0, 1}, {44100, 7, 1}, {96000, 0, 1},     {96000, 7, 1},
                {44100, 0, 2}, {44100, 5, 2}, {192000, 0, 1.5F}, {8000, 7, 0.5F}};
    for (const auto& row : rows) {
        const std::string path = writeNoise(
            folder.file("long.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, row.rate, 14.0);
        const auto player = [&](double streamFrom) {
            const auto sound = std::make_shared<Sound>(Sound::Settings{.streamFrom = streamFrom});
            sound->load(Corvid::URL(path));
            return std::make_unique<Player>(sound, row.from, row.pitch);
        };
        const auto streamed = player(1);
        if (row.from > 0) {
            for (int i = 0; i < 20 && !streamed->hear(0.005, true); ++i) {
            }
        }
        EXPECT_TRUE(streamed->hear(0.1, false)) << &row - rows << ": at the start";
        EXPECT_TRUE(streamed->hear(0.3, true)) << &row - rows;
        EXPECT_TRUE(streamed->hear(0.1, false)) << &row - rows << ": later";
        EXPECT_TRUE(streamed->hear(0.3, true)) << &row - rows;
        EXPECT_EQ(streamed->gaps(), 0U) << &row - rows;
        // After a gap it goes on where it would have been.
        streamed->hear(2.0, false);
        EXPECT_FALSE(streamed->hear(0.1, false)) << &row - rows;
        streamed->hear(0.5, true);
        EXPECT_EQ(streamed->gaps(), 1U) << &row - rows;
        const std::size_t from = streamed->sound.size();
        EXPECT_TRUE(streamed->hear(0.2, true)) << &row - rows;
        const auto whole = player(100);
        whole->hear(static_cast<double>(streamed->sound.size()) / 2 / kRate, false);
        double difference = 0.0;
        for (std::size_t i = from; i < streamed->sound.size(); ++i) {
            difference = std::max(
                difference, std::abs(static_cast<double>(streamed->sound[i] - whole->sound[i])));
        }
        EXPECT_LT(difference, 0.01) << &row - rows;
    }
}

} // namespace Orvel::Test
