#include "support/Capture.h"
#include "support/RecordingBackend.h"
#include "support/TemporaryFolder.h"

#include <Corvid/URL.h>

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace Orvel::Test {

namespace {

using Bytes = std::vector<unsigned char>;

class SourceData : public testing::Test {
protected:
    TidyWorld world;
    Source& source = *world.createSource(1);
    RecordingBackend& backend = *new RecordingBackend(world);
    OutputCapture errors{STDERR_FILENO};
    LogCapture log;
};

} // namespace

TEST_F(SourceData, CopiesThePcmBytesItIsGiven) {
    Bytes bytes{1, 2, 3, 4};
    source.setData(44100, 16, 2, bytes.data(), 4);
    bytes[0] = 9;
    EXPECT_EQ(source.data(), (Bytes{1, 2, 3, 4}));
    source.setData(7, 12, 99, source.data().data() + 1, 2); // part of its data; no checks
    EXPECT_EQ(source.data(), (Bytes{2, 3}));
    EXPECT_EQ(errors.take(), "Source::setData call\nSource::setData call\n");
    EXPECT_EQ(log.take(), Calls());
    for (const bool noPointer : {true, false}) {
        source.setData(44100, 16, 2, bytes.data(), 4);
        source.setData(44100, 16, 2, noPointer ? nullptr : bytes.data(), noPointer ? 100 : 0);
        EXPECT_EQ(source.data(), Bytes());
        EXPECT_EQ(source.sampleRate(), 0U);
        EXPECT_EQ(log.take(), Calls{"LOG: Invalid data in Orvel::Source::setData()\n"});
    }
    EXPECT_EQ(backend.take(), Calls(6, "setSourceData 1"));
}

TEST_F(SourceData, KeepsTheBytesBesideAUrlAndThrowsForAnUnparsableOne) {
    const Bytes bytes{1, 2};
    source.setData(44100, 16, 1, bytes.data(), 2);
    source.setDataFromURL("http://example.org/bell.wav");
    EXPECT_EQ(source.dataKind(), Source::URL_SD);
    EXPECT_EQ(source.url()->text(), "http://example.org/bell.wav");
    EXPECT_EQ(source.data(), bytes);
    backend.take();
    EXPECT_THROW(source.setDataFromURL("http://["), Corvid::URLImpl::Exception);
    EXPECT_EQ(source.url(), nullptr);
    EXPECT_EQ(backend.take(), Calls()) << "nobody is told";
}

TEST_F(SourceData, DumpsAWavFile) {
    const TemporaryFolder folder;
    const auto dump = [&](const std::string& file) {
        source.dumpWavFile(file);
        EXPECT_EQ(log.take(), Calls{"LOG: Dump PCM data to " + file + "\n"});
        std::ifstream stream(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    };
    const Bytes samples{'a', 'b', 'c', 'd'};
    source.setData(44100, 12, 2, samples.data(), 4);
    const char expected[] = "RIFF\x28\0\0\0WAVEfmt \x10\0\0\0\1\0\2\0\x44\xAC\0\0\x10\xB1\2\0"
                            "\4\0\x0C\0data\4\0\0\0abcd";
    EXPECT_EQ(dump(folder.file("a.wav")), std::string(expected, sizeof expected - 1));
    // Values that do not fit are truncated to their field, without affecting the next one.
    source.setData(0xFFFFFFFF, 0x10010, 0x10003, samples.data(), 1);
    EXPECT_EQ(dump(folder.file("a.wav")).substr(22, 6), std::string("\3\0\xFF\xFF\xFF\xFF", 6));
    // A file that cannot be written is only logged.
    EXPECT_EQ(dump(folder.file("missing/a.wav")), "");
}

} // namespace Orvel::Test
