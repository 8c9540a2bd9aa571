#pragma once

#include <Orvel/CommandEvent.h>

#include <string>
#include <vector>

#include <orvel_export.h>

namespace Orvel {

/// A new source, optionally with the bytes of a sound file: CmdCreateSource. The whole file is held
/// in memory, in one block, and must fit into one frame (Corvid::Event).
///
/// Copying differs on purpose: a copy-constructed event has the file's name but no bytes, an
/// assigned one has its own copy of them.
class ORVEL_EXPORT SourceDataEvent : public EventOf<SourceDataEvent, CommandEvent> {
public:
    SourceDataEvent() = default;
    SourceDataEvent(const SourceDataEvent& other);
    SourceDataEvent& operator=(const SourceDataEvent& other);
    ~SourceDataEvent() override = default;

    /// Fills the event with the bytes of the file `fileName`. Returns true if all of it was read;
    /// otherwise the event is empty. Logs nothing if there is no such file.
    bool loadData();
    /// Writes the bytes to the file `targetName`, replacing it. Returns true if all were written.
    /// Without bytes no file is created.
    [[nodiscard]] bool storeData(const std::string& targetName) const;

    /// The bytes, owned by the event; null if there are none.
    [[nodiscard]] const unsigned char* data() const noexcept {
        return data_.empty() ? nullptr : data_.data();
    }
    [[nodiscard]] unsigned long dataSize() const noexcept { return data_.size(); }

    /// The sound file's name on the loading side.
    std::string fileName;

    static auto fields(auto& event) { return std::tie(event.fileName, event.data_); }
    static Corvid::EventType _type;

private:
    std::vector<unsigned char> data_;
};

} // namespace Orvel
