#pragma once

#include <Orvel/detail/voices/SoundStream.h>
#include <Orvel/detail/voices/Worker.h>

#include <memory>

namespace Orvel::detail {

/// Reads streams ahead on a thread of its own, each as long as somebody else uses it. Synchronised.
class StreamReader {
public:
    StreamReader();
    StreamReader(const StreamReader&) = delete;
    StreamReader& operator=(const StreamReader&) = delete;
    ~StreamReader();

    void add(const std::shared_ptr<SoundStream>& stream);

private:
    struct Streams;

    std::shared_ptr<Streams> streams_;
    Worker worker_;
};

} // namespace Orvel::detail
