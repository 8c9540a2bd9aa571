#pragma once

namespace Show {

/// The sample format of a file.
enum class SampleFormat {
    s16, ///< 16-bit integers, rounded, clipped at full scale
    f32, ///< 32-bit floats
};

} // namespace Show
