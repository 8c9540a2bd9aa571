#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Show {

/// Paths of Open Sound Control, and patterns in them.

/// The words of a path between its slashes; `path` begins with one.
std::vector<std::string_view> splitPath(std::string_view path);

/// Whether a word of a message's path stands for several names.
bool isPattern(std::string_view word);
/// Whether a word of a message's path, which may be a pattern, stands for a name.
bool fits(std::string_view word, const std::string& name);
/// Whether the words begin with those of a prefix, such as "/adm/obj/", and have `more` after them.
bool fits(const std::vector<std::string_view>& words, std::string_view prefix, std::size_t more);

/// Reads the id of a part; false if the word is none.
bool toId(std::string_view word, int& id);
/// A path of a part, or of none if `id` is 0.
std::string fullPath(std::string_view prefix, int id, std::string_view name);

} // namespace Show
