#include <Show/scene/JsonTree.h>

#include <Show/scene/JsonProblem.h>
#include <Show/scene/SceneFile.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <set>
#include <utility>

namespace Show {

namespace {

/// The read position of the parser.
struct ReadProgress {
    int line = 1;
    std::size_t consumed = 0;
    bool afterNewline = false;
};

/// Reads a text and counts its lines. A line ends when the character after its '\n' is read, since
/// the parser reads one character beyond a number before it reports it.
class CountingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountingIterator(const char* at, ReadProgress& progress) : at_(at), progress_(&progress) {}

    reference operator*() const { return *at_; }
    CountingIterator& operator++() {
        if (progress_->afterNewline) {
            ++progress_->line;
        }
        progress_->afterNewline = *at_ == '\n';
        ++progress_->consumed;
        ++at_;
        return *this;
    }
    bool operator==(const CountingIterator& other) const { return at_ == other.at_; }

private:
    const char* at_;
    ReadProgress* progress_;
};

/// Builds the tree. A callback that returns false stops the parser.
class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
public:
    struct Overflow {
        std::size_t end = 0; ///< offset after the number
        std::size_t length = 0;
        Problem problem;
    };

    /// `blanked`: the numbers that were too large and have been overwritten by zeros, as the number
    /// of bytes consumed when the zero is reported.
    TreeBuilder(
        std::string_view text, const ReadProgress& progress, const std::string& file,
        const std::set<std::size_t>& blanked)
        : text_(text), progress_(progress), file_(file), blanked_(blanked) {}

    bool null() override { return add(JsonValue::Kind::Null) != nullptr; }
    bool boolean(bool yes) override {
        JsonValue* value = add(JsonValue::Kind::Bool);
        if (value != nullptr) {
            value->yes = yes;
        }
        return value != nullptr;
    }
    bool number_integer(std::int64_t number) override {
        return addNumber(static_cast<double>(number));
    }
    bool number_unsigned(std::uint64_t number) override {
        return addNumber(static_cast<double>(number));
    }
    bool number_float(double number, const std::string& /*text*/) override {
        return addNumber(number);
    }
    bool string(std::string& text) override {
        JsonValue* value = add(JsonValue::Kind::Text);
        if (value != nullptr) {
            value->text = tree_.texts.emplace_back(std::move(text));
        }
        return value != nullptr;
    }
    bool binary(nlohmann::json::binary_t& /*bytes*/) override { return false; }
    bool start_object(std::size_t /*size*/) override { return open(JsonValue::Kind::Object); }
    bool start_array(std::size_t /*size*/) override { return open(JsonValue::Kind::Array); }
    bool key(std::string& name) override {
        const auto found = tree_.keys.find(name);
        key_ = found == tree_.keys.end() ? *tree_.keys.insert(std::move(name)).first : *found;
        keyLine_ = progress_.line;
        return true;
    }
    bool end_object() override {
        reportRepeatedKeys();
        open_.pop_back();
        return true;
    }
    bool end_array() override {
        open_.pop_back();
        return true;
    }
    bool parse_error(
        std::size_t position, const std::string& token,
        const nlohmann::json::exception& error) override {
        constexpr int kNumberOverflow = 406;
        if (error.id == kNumberOverflow) {
            overflow_ = Overflow{position, token.size(), {}};
            overflow_->problem = problem(
                nextPath(),
                problemAt(
                    text_, position - token.size(),
                    "expected a number within the range of a double, found " + printable(token)));
            return false;
        }
        const std::optional<JsonProblem> mistake = findProblem(text_);
        problems_.push_back(problem(
            path(), mistake ? *mistake
                            : problemAt(
                                  text_, std::min(progress_.consumed, text_.size()),
                                  std::string("expected JSON, found ") + error.what())));
        return false;
    }

    std::vector<Problem>& problems() { return problems_; }
    const std::optional<Overflow>& overflow() const { return overflow_; }
    JsonTree& tree() { return tree_; }

private:
    [[nodiscard]] Problem problem(std::string field, const JsonProblem& mistake) const {
        return {file_, mistake.line, std::move(field), mistake.text, mistake.column};
    }
    [[nodiscard]] JsonProblem mistakeHere(std::string words) const {
        return problemAt(text_, progress_.consumed - 1, std::move(words));
    }

    bool addNumber(double number) {
        const bool blank = blanked_.contains(progress_.consumed);
        JsonValue* value = add(blank ? JsonValue::Kind::Unreadable : JsonValue::Kind::Number);
        if (value != nullptr) {
            value->number = number;
        }
        return value != nullptr;
    }

    JsonValue* add(JsonValue::Kind kind) {
        if (++values_ > kMaxSceneValues) {
            problems_.push_back(problem(
                path(),
                mistakeHere(
                    "expected no more than " + std::to_string(kMaxSceneValues) + " values")));
            return nullptr;
        }
        JsonValue* value = &tree_.root;
        const bool member = !open_.empty() && open_.back()->kind == JsonValue::Kind::Object;
        if (!open_.empty()) {
            value = &open_.back()->items.emplace_back();
        }
        value->kind = kind;
        value->line = member ? keyLine_ : progress_.line;
        if (member) {
            value->key = key_;
        }
        return value;
    }

    bool open(JsonValue::Kind kind) {
        if (open_.size() == kMaxSceneDepth) {
            problems_.push_back(problem(
                "", mistakeHere(
                        "expected no more than " + std::to_string(kMaxSceneDepth) +
                        " arrays and objects within each other")));
            return false;
        }
        JsonValue* value = add(kind);
        if (value != nullptr) {
            value->items.reserve(4);
            open_.push_back(value);
        }
        return value != nullptr;
    }

    /// The place of the innermost open array or object.
    std::string path() const {
        std::string text;
        for (std::size_t i = 1; i < open_.size(); ++i) {
            append(text, *open_[i - 1], open_[i]->key, open_[i - 1]->items.size() - 1);
        }
        return text;
    }
    /// The place of the next value.
    std::string nextPath() const {
        std::string text = path();
        if (!open_.empty()) {
            append(text, *open_.back(), key_, open_.back()->items.size());
        }
        return text;
    }
    static void
    append(std::string& text, const JsonValue& parent, std::string_view key, std::size_t index) {
        if (parent.kind == JsonValue::Kind::Array) {
            text += '[' + std::to_string(index) + ']';
        } else {
            text += (text.empty() ? "" : ".") + printable(key);
        }
    }

    void reportRepeatedKeys() {
        constexpr std::size_t kFew = 32; // for which comparing all pairs is faster than sorting
        const auto& items = open_.back()->items;
        bool repeated = items.size() > kFew;
        for (std::size_t i = 1; i < items.size() && !repeated; ++i) {
            for (std::size_t k = 0; k < i && !repeated; ++k) {
                repeated = items[i].key.data() == items[k].key.data();
            }
        }
        if (!repeated) {
            return;
        }
        std::vector<const JsonValue*> members;
        for (const JsonValue& member : open_.back()->items) {
            members.push_back(&member);
        }
        std::stable_sort(
            members.begin(), members.end(),
            [](const JsonValue* a, const JsonValue* b) { return a->key < b->key; });
        for (std::size_t i = 1; i < members.size(); ++i) {
            if (members[i]->key == members[i - 1]->key && problems_.size() < kMaxProblems) {
                std::string field = path();
                append(field, *open_.back(), members[i]->key, 0);
                problems_.push_back(
                    {file_, members[i]->line, field,
                     "expected each key once, found it in line " +
                         std::to_string(members[i - 1]->line) + " already"});
            }
        }
    }

    std::string_view text_; // as given
    const ReadProgress& progress_;
    const std::string& file_;
    const std::set<std::size_t>& blanked_;
    JsonTree tree_;
    std::vector<JsonValue*> open_; // each the last item of the one before
    std::string_view key_;
    int keyLine_ = 0;
    std::size_t values_ = 0;
    std::vector<Problem> problems_;
    std::optional<Overflow> overflow_;
};

} // namespace

const JsonValue* JsonValue::find(std::string_view name) const {
    for (const JsonValue& item : items) {
        if (item.key == name) {
            return &item;
        }
    }
    return nullptr;
}

std::string JsonValue::describe() const {
    switch (kind) {
    case Kind::Null:
        return "null";
    case Kind::Bool:
        return yes ? "true" : "false";
    case Kind::Number:
        return printable(number);
    case Kind::Text:
        return '"' + printable(text) + '"';
    case Kind::Array:
        return "an array of " + std::to_string(items.size());
    case Kind::Object:
        return "an object";
    case Kind::Unreadable:
        break;
    }
    return "a number too large";
}

std::string JsonPlace::str() const {
    std::string text = up == nullptr ? "" : up->str();
    if (!key.empty()) {
        return text + (text.empty() ? "" : ".") + printable(key);
    }
    return up == nullptr ? text : text + '[' + std::to_string(index) + ']';
}

std::optional<JsonTree>
parseJson(std::string_view text, const std::string& file, std::vector<Problem>& problems) {
    // The parser takes a null character for the end; UTF-16 contains some.
    if (text.find('\0') != std::string_view::npos) {
        if (const std::optional<JsonProblem> mistake = findProblem(text)) {
            problems.push_back({file, mistake->line, "", mistake->text, mistake->column});
            return std::nullopt;
        }
    }
    std::string copy(text);
    std::set<std::size_t> blanked;
    // The parser stops at a number that is too large. To check the rest too, the number is recorded
    // and overwritten, and the text parsed again.
    constexpr std::size_t kMaxOverflows = 10;
    for (;;) {
        ReadProgress progress;
        TreeBuilder builder(text, progress, file, blanked);
        const char* begin = copy.data();
        const bool good = nlohmann::json::sax_parse(
            CountingIterator(begin, progress), CountingIterator(begin + copy.size(), progress),
            &builder, nlohmann::json::input_format_t::json, true, true); // with comments
        if (builder.overflow() && blanked.size() < kMaxOverflows) {
            const TreeBuilder::Overflow& overflow = *builder.overflow();
            problems.push_back(overflow.problem);
            const std::size_t start = overflow.end - overflow.length;
            std::fill_n(copy.begin() + static_cast<std::ptrdiff_t>(start), overflow.length, ' ');
            copy[start] = '0';
            blanked.insert(start + 2); // the zero and the space after it
            continue;
        }
        if (builder.overflow()) {
            problems.push_back(builder.overflow()->problem);
        }
        problems.insert(problems.end(), builder.problems().begin(), builder.problems().end());
        if (!good) {
            return std::nullopt;
        }
        return std::move(builder.tree());
    }
}

std::string printable(std::string_view text, std::size_t longest) {
    std::string result(text.substr(0, longest));
    if (text.size() > longest) {
        // Not inside a UTF-8 sequence, whose later bytes are 10xxxxxx.
        while (!result.empty() &&
               (static_cast<unsigned char>(text[result.size()]) & 0xC0U) == 0x80U) {
            result.pop_back();
        }
        result += "...";
    }
    std::replace_if(
        result.begin(), result.end(), [](char c) { return (c >= 0 && c < ' ') || c == 127; }, '?');
    return result;
}

std::string printable(double number) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.10g", number);
    return text.data();
}

} // namespace Show
