#pragma once

#include <Config/ParamBag.h>

#include <stdexcept>
#include <string>

#include <orvel_export.h>

namespace Config {

/// Parameters given as one line of text, such as `labels="front, back" command="player -q"`.
///
/// Parameters are `key=value`, separated by white space. A key is a letter or underscore followed
/// by letters, digits, underscores, hyphens and dots. A value is any run of plain text, "quoted"
/// and 'quoted' pieces without white space between them, and may be empty. Outside quotes and
/// inside double quotes a backslash takes the next character literally, except that `\n`, `\t` and
/// `\r` are the control characters; inside single quotes everything is literal. A repeated key
/// replaces the earlier value.
///
/// Confined to one thread at a time.
class ORVEL_EXPORT ParamLine : public ParamBag {
public:
    /// A malformed parameter line. what() names the column and the expected text.
    class ORVEL_EXPORT Exception : public std::runtime_error {
    public:
        Exception(std::size_t column, const std::string& message);
        /// The position of the error, in bytes from 1.
        [[nodiscard]] std::size_t column() const noexcept { return column_; }

    private:
        std::size_t column_;
    };

    /// Replaces all parameters by those of `text`; null counts as the empty text. Throws Exception
    /// for malformed text; the parameters before the error are kept.
    void setParamLine(const char* text);
};

} // namespace Config
