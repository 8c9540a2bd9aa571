#include <Orvel/detail/net/PeerLines.h>

#include <Corvid/detail/net/LineLimit.h>

#include <array>

namespace Orvel::detail {

namespace {

struct LineKind {
    const char* text; // start of its lines
    Corvid::detail::LineLimit limit{kMaxPeerLines};
};

/// In the order of PeerLine. Never destroyed, because lines may come until the process ends.
std::array<LineKind, 6>& kinds() {
    static auto& all = *new std::array<LineKind, 6>{
        {{"Got invalid Event"},
         {"Unkown command ID"},
         {"got Corvid::Event which is not a Orvel::Event"},
         {"lost client, Lost server"},
         {"There is already a Orvel emitter"},
         {"OpenAL state machine error"}}};
    return all;
}

void report(LineKind& kind, bool final) {
    if (const auto count = kind.limit.takeLeftOut(final); count != 0) {
        ORVEL_REPORT(
            Warning, about(Diagnostic::Code::LeftOut),
            "%llu more lines of this kind were suppressed: %s\n",
            static_cast<unsigned long long>(count), kind.text);
    }
}

} // namespace

bool admitPeerLine(PeerLine kind) {
    LineKind& one = kinds()[static_cast<std::size_t>(kind)];
    report(one, false);
    return one.limit.admit();
}

void reportPeerLinesLeftOut(bool final) {
    for (LineKind& kind : kinds()) {
        report(kind, final);
    }
}

} // namespace Orvel::detail
