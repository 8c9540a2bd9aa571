#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <Corvid/URL.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace Orvel::Test {

namespace {

using Bytes = std::vector<unsigned char>;

class SourceData : public testing::Test {
protected:
    TidyWorld world;
    RecordingBackend& backend = *new RecordingBackend(world);
    Source& source = *world.createSource(1);
    OutputCapture errors{STDERR_FILENO};
    LogCapture log;
};

} // namespace

TEST_F(SourceData, CopiesThePcmBytesItIsGiven) {
    const auto shape = [this] {
        return std::vector<unsigned>{
            source.sampleRate(), source.bitsPerSample(), source.channels(),
            static_cast<unsigned>(source.dataKind())};
    };
    backend.take();
    Bytes bytes{1, 2, 3, 4, 5, 6, 7, 8};
    source.setData(44100, 16, 2, bytes.data(), 8);
    bytes[0] = 9;
    EXPECT_EQ(source.data(), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(shape(), (std::vector<unsigned>{44100, 16, 2, Source::PCM_SD}));
    source.setData(7, 12, 99, bytes.data(), 4);
    EXPECT_EQ(source.data(), (Bytes{9, 2, 3, 4}));
    EXPECT_EQ(shape(), (std::vector<unsigned>{7, 12, 99, Source::PCM_SD})) << "nothing is checked";
    // A part of its own bytes.
    source.setData(8, 8, 1, source.data().data() + 1, 2);
    EXPECT_EQ(source.data(), (Bytes{2, 3}));
    EXPECT_EQ(errors.take(), "Source::setData call\nSource::setData call\nSource::setData call\n");
    EXPECT_EQ(log.take(), Calls());
    EXPECT_EQ(backend.take(), Calls(3, "setSourceData 1"));

    for (const bool noPointer : {true, false}) {
        source.setData(44100, 16, 2, bytes.data(), 8);
        errors.take();
        source.setData(44100, 16, 2, noPointer ? nullptr : bytes.data(), noPointer ? 100 : 0);
        EXPECT_EQ(source.data(), Bytes());
        EXPECT_EQ(shape(), (std::vector<unsigned>{0, 0, 0, Source::PCM_SD}));
        EXPECT_EQ(errors.take(), "Source::setData call\n");
        EXPECT_EQ(log.take(), Calls{"LOG: Invalid data in Orvel::Source::setData()\n"});
        EXPECT_EQ(backend.take(), Calls(2, "setSourceData 1"));
    }
}

TEST_F(SourceData, KeepsTheOtherFormWhenOneIsSet) {
    const Bytes bytes{1, 2};
    source.setData(44100, 16, 1, bytes.data(), 2);
    backend.take();
    source.setDataFromURL("http://example.org/bell.wav");
    EXPECT_EQ(backend.take(), Calls{"setSourceData 1"});
    EXPECT_EQ(source.dataKind(), Source::URL_SD);
    EXPECT_EQ(source.url()->text(), "http://example.org/bell.wav");
    EXPECT_EQ(source.data(), bytes);
    source.setData(44100, 16, 1, bytes.data(), 2);
    EXPECT_EQ(source.dataKind(), Source::PCM_SD);
    EXPECT_NE(source.url(), nullptr);
}

TEST_F(SourceData, ThrowsForAnUnparsableUrlAndTellsNobody) {
    source.setDataFromURL("bell.wav");
    EXPECT_EQ(
        source.url()->text(), "file://" + std::filesystem::current_path().string() + "/bell.wav");
    backend.take();
    try {
        source.setDataFromURL("http://[");
        ADD_FAILURE() << "no exception";
    } catch (const Corvid::URLImpl::Exception& fault) {
        EXPECT_STREQ(fault.what(), "Cannot parse URL");
    }
    EXPECT_EQ(source.url(), nullptr);
    EXPECT_EQ(source.dataKind(), Source::URL_SD);
    EXPECT_EQ(backend.take(), Calls());
}

TEST_F(SourceData, DumpsAWavFile) {
    std::string folder = testing::TempDir() + "orvel-dump-XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    const std::string file = folder + "/dump.wav";
    const auto dump = [&] {
        source.dumpWavFile(file);
        EXPECT_EQ(log.take(), Calls{"LOG: Dump PCM data to " + file + "\n"});
        std::ifstream stream(file, std::ios::binary);
        const Bytes bytes{std::istreambuf_iterator<char>(stream), {}};
        EXPECT_EQ(std::remove(file.c_str()), 0);
        return bytes;
    };
    const Bytes samples{0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8};
    source.setData(44100, 16, 2, samples.data(), 8);
    EXPECT_EQ(
        dump(), (Bytes{'R', 'I', 'F',  'F',  44, 0,    0,    0,    'W',  'A',  'V',  'E',  'f',
                       'm', 't', ' ',  16,   0,  0,    0,    1,    0,    2,    0,    0x44, 0xAC,
                       0,   0,   0x10, 0xB1, 2,  0,    4,    0,    16,   0,    'd',  'a',  't',
                       'a', 8,   0,    0,    0,  0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8}));
    source.setData(8000, 12, 1, samples.data(), 2);
    const Bytes twelve = dump();
    ASSERT_EQ(twelve.size(), 46U);
    EXPECT_EQ(Bytes(&twelve[28], &twelve[36]), (Bytes{0x80, 0x3E, 0, 0, 2, 0, 12, 0}));
    // Values that do not fit are cut to their field, not spilt into the next.
    source.setData(0xFFFFFFFF, 0x10010, 0x10003, samples.data(), 1);
    const Bytes cut = dump();
    ASSERT_EQ(cut.size(), 45U);
    EXPECT_EQ(Bytes(&cut[22], &cut[28]), (Bytes{3, 0, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(Bytes(&cut[34], &cut[40]), (Bytes{16, 0, 'd', 'a', 't', 'a'}));

    Source& empty = *world.createSource();
    empty.dumpWavFile(file);
    EXPECT_EQ(std::filesystem::file_size(file), 44U);
    log.take();
    // Nothing but the line tells of a file that cannot be written.
    empty.dumpWavFile(folder + "/missing/dump.wav");
    EXPECT_EQ(log.take(), Calls{"LOG: Dump PCM data to " + folder + "/missing/dump.wav\n"});
    std::filesystem::remove_all(folder);
}

} // namespace Orvel::Test
