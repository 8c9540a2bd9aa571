# Writes the source file OUTPUT with the time of the build in UTC, such as "Apr 2 2015 02:13:07".
# SOURCE_DATE_EPOCH replaces the clock if it is set, for reproducible builds.
string(TIMESTAMP now "%Y;%m;%d;%H:%M:%S" UTC)
list(GET now 0 year)
list(GET now 1 month)
list(GET now 2 day)
list(GET now 3 time)
# By number, as names depend on the locale.
set(months Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec)
math(EXPR month "${month} - 1")
list(GET months ${month} month)
string(REGEX REPLACE "^0" " " day "${day}")
file(WRITE "${OUTPUT}" "#include <Orvel/Version.h>

namespace Orvel {

const char* buildDate() noexcept {
    return \"${month} ${day} ${year} ${time}\";
}

} // namespace Orvel
")
