#include <Orvel/SourceDataEvent.h>

#include <Orvel/detail/Report.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <new>
#include <utility>

namespace Orvel {

SourceDataEvent::SourceDataEvent(const SourceDataEvent& other)
    : EventOf(other), fileName(other.fileName) {}

SourceDataEvent& SourceDataEvent::operator=(const SourceDataEvent& other) {
    if (this != &other) {
        EventOf::operator=(other);
        fileName = other.fileName;
        data_ = std::vector<unsigned char>(other.data_); // frees the old block
    }
    return *this;
}

bool SourceDataEvent::loadData() {
    data_ = {};
    if (fileName.empty()) {
        return false;
    }
    // Opening a pipe would wait for its writer, and a folder can be opened but has no size.
    std::error_code ignored;
    const auto status = std::filesystem::status(fileName, ignored);
    const bool otherKind =
        std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
    std::ifstream file;
    if (!otherKind) {
        file.open(fileName, std::ios::binary);
        if (!file) {
            return false;
        }
        file.seekg(0, std::ios::end);
    }
    const std::streamoff end = otherKind ? 0 : std::streamoff(file.tellg());
    if (end <= 0) {
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::File, {}, fileName),
            "Could not seek Orvel::Source data: >%s<\n", fileName.c_str());
        return false;
    }
    const auto size = static_cast<unsigned long>(end);
    unsigned long got = 0;
    try {
        data_.resize(size);
        file.seekg(0);
        file.read(reinterpret_cast<char*>(data_.data()), end);
        got = static_cast<unsigned long>(file.gcount());
    } catch (const std::exception&) { // not enough memory for the file
        got = 0;
    }
    if (got != size) {
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::File, {}, fileName),
            "Could not read Orvel::Source data: >%s< (%lu/%lu)\n", fileName.c_str(), size, got);
        data_ = {};
        return false;
    }
    ORVEL_LOG(
        Log, "Read local Orvel::Source data: >%s< (%lu byte)\n", fileName.c_str(), dataSize());
    return true;
}

bool SourceDataEvent::storeData(const std::string& targetName) const {
    if (targetName.empty() || data_.empty()) {
        return false;
    }
    std::ofstream file(targetName, std::ios::binary | std::ios::trunc);
    if (file) {
        file.write(
            reinterpret_cast<const char*>(data_.data()),
            static_cast<std::streamsize>(data_.size()));
        file.close(); // a full disk may be detected only on close
    }
    if (!file) {
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::File, {}, targetName),
            "Could not write local Orvel::Source data: >%s< (%lu bytes)\n", targetName.c_str(),
            dataSize());
        return false;
    }
    ORVEL_LOG(
        Log, "Wrote local Orvel::Source data: >%s< (%lu bytes)\n", targetName.c_str(), dataSize());
    return true;
}

} // namespace Orvel
