#include <Orvel/SoundFile.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <filesystem>
#include <gtest/gtest.h>
#include <numeric>
#include <sndfile.h>
#include <support/TemporaryFolder.h>

using Orvel::SoundFile;

namespace {

constexpr int kFrames = 50000; // several blocks of the decoder

/// Writes a stereo file whose samples increase by one.
std::string writeRamp(const Orvel::Test::TemporaryFolder& folder, const char* name, int format) {
    const std::string path = folder.file(name);
    std::vector<std::int16_t> samples(std::size_t{2} * kFrames);
    std::iota(samples.begin(), samples.end(), std::int16_t{0});
    SF_INFO info{0, 8000, 2, format | SF_FORMAT_PCM_16, 0, 0};
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    sf_write_short(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);
    return path;
}

} // namespace

TEST(SoundFile, ReadsInPiecesWhatItDecodesWhole) {
    const Orvel::Test::TemporaryFolder folder;
    for (const int format : {SF_FORMAT_WAV, SF_FORMAT_FLAC}) {
        SoundFile file(writeRamp(folder, "ramp", format));
        ASSERT_TRUE(file.isOpen()) << file.error();
        EXPECT_EQ(file.frames(), std::uint64_t{kFrames});
        const auto whole = file.decode(SoundFile::Channels::Keep);
        ASSERT_TRUE(whole);
        for (const std::uint64_t begin : {0, 40001, 7}) {
            ASSERT_TRUE(file.seek(begin));
            std::vector<std::int16_t> integers(20001); // not a whole number of frames
            std::vector<float> floats(20);
            const std::size_t got = file.read(std::span(integers));
            EXPECT_EQ(got, std::min<std::uint64_t>(10000, kFrames - begin));
            for (std::size_t i = 0; i < 2 * got; ++i) {
                ASSERT_EQ(integers[i], whole->samples[2 * begin + i]) << begin << " " << i;
            }
            EXPECT_EQ(file.position(), begin + got);
            if (file.read(std::span(floats)) != 0) {
                EXPECT_EQ(floats[3] * 32768.0F, whole->samples[2 * (begin + got) + 3]);
            }
        }
        EXPECT_FALSE(file.seek(kFrames + 1));
        EXPECT_EQ(file.position(), 10017U);
        EXPECT_FALSE(file.decode(SoundFile::Channels::Mono, kFrames)); // of two bytes each
        const auto mixed = file.decode(SoundFile::Channels::Mono, std::size_t{2} * kFrames);
        EXPECT_EQ(mixed.value().samples.size(), kFrames) << "from the beginning";
    }
}

TEST(SoundFile, GivesASourceNothingOfADamagedFile) {
    const Orvel::Test::TemporaryFolder folder;
    const std::string path = writeRamp(folder, "ramp", SF_FORMAT_FLAC);
    Orvel::World world;
    Orvel::Source* source = world.createSource();
    EXPECT_TRUE(SoundFile(path).giveTo(*source));
    EXPECT_EQ(source->data().size(), std::size_t{2} * kFrames);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    SoundFile damaged(path);
    EXPECT_FALSE(damaged.giveTo(*source));
    EXPECT_NE(damaged.error().find("ramp\" is damaged"), std::string::npos) << damaged.error();
    EXPECT_EQ(source->data().size(), std::size_t{2} * kFrames);
    world.clearWorld();
}
