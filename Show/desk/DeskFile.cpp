#include <Show/desk/DeskFile.h>

#include <Show/detail/OutputFile.h>
#include <Show/monitor/JsonWriter.h>
#include <Show/scene/JsonText.h>
#include <Show/scene/SceneFile.h>

#include <algorithm>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <system_error>
#include <vector>

namespace Show {

namespace {

std::string readWhole(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string listOf(std::initializer_list<float> numbers) {
    std::string text;
    for (const float number : numbers) {
        text += text.empty() ? "[" : ", ";
        JsonWriter(text).value(number);
    }
    return text + "]";
}

/// Sets an override in the object at that path.
void setIn(JsonText& text, const std::string& path, const Override& override) {
    if (const auto& p = override.position) {
        text.set(path, "position", listOf({p->x, p->y, p->z}));
    }
    if (const auto& r = override.rotation) {
        text.replace(
            path, text.has(path, "ypr") ? "ypr" : "rotation", "rotation",
            listOf({r->x, r->y, r->z, r->w}));
    }
    if (override.gain) {
        std::string gain;
        JsonWriter(gain).value(*override.gain);
        text.set(path, "gain", gain);
    }
}

/// Whether a text is the name of a file for a browser to choose: visible, without a folder.
bool isPlainName(std::string_view name) {
    return name.size() > 5 && name.size() <= DeskFile::kMaxName && name.ends_with(".json") &&
           name.front() != '.' && std::ranges::none_of(name, [](char c) {
               return c == '/' || c == '\\' || static_cast<unsigned char>(c) < ' ' || c == 127;
           });
}

} // namespace

DeskFile::DeskFile(const Scene& scene) : scene_(scene) {
    std::error_code error;
    // A link stays one: the file that it names is saved.
    const auto path = std::filesystem::canonical(scene.path, error);
    if (error || !std::filesystem::is_regular_file(path, error)) {
        return;
    }
    text_ = readWhole(path);
    path_ = path;
}

std::string DeskFile::name() const {
    return path_.filename().string();
}

std::string DeskFile::edit(const std::map<int, Override>& overrides) const {
    JsonText text(text_);
    for (const auto& [id, override] : overrides) {
        if (id != Overrides::kListener) {
            continue;
        }
        if (!text.has("", "listener") && (override.position || override.rotation)) {
            text.set("", "listener", "{}");
        }
        setIn(text, "listener", override);
    }
    const auto set = [&](const EmitterSpec& spec) {
        if (const auto found = overrides.find(spec.id); found != overrides.end()) {
            setIn(text, spec.where.field, found->second);
        }
    };
    std::ranges::for_each(scene_.emitters, set);
    for (const Change& change : scene_.timeline) {
        if (change.newEmitter) {
            set(*change.newEmitter);
        }
    }
    return text.text();
}

std::string DeskFile::save(std::string_view name, const std::map<int, Override>& overrides) {
    if (path_.empty()) {
        return "the scene was not read from a file";
    }
    std::filesystem::path path = path_;
    if (!name.empty() && name != this->name()) {
        if (!isPlainName(name)) {
            return "expected the name of a file in the scene's folder that ends with .json and has "
                   "at most " +
                   std::to_string(kMaxName) + " bytes";
        }
        path.replace_filename(name);
        std::error_code error;
        if (std::filesystem::exists(std::filesystem::symlink_status(path, error))) {
            return "there is a file " + std::string(name) + " already; choose another name";
        }
    } else if (readWhole(path) != text_) {
        return this->name() +
               " has been changed since it was loaded; save under another name to lose nothing";
    }
    std::string text = edit(overrides);
    std::vector<Problem> problems;
    if (!parseScene(text, path.string(), problems)) {
        return "the file would not be valid: " + problems.front().str();
    }
    try {
        OutputFile file(path.string());
        file.write(text);
        file.keep();
    } catch (const OutputError& error) {
        return error.what();
    }
    if (path == path_) {
        text_ = std::move(text);
    }
    return {};
}

} // namespace Show
