#include <Show/osc/OscQuery.h>

#include <Show/monitor/JsonWriter.h>
#include <Show/osc/OscPath.h>

#include <Corvid/IOException.h>
#include <Corvid/WebPage.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>
#include <vector>

namespace Show {

namespace {

using Corvid::ProtocolHTTP;

constexpr std::array<std::string_view, 7> kAttributes{"FULL_PATH", "CONTENTS", "ACCESS",     "TYPE",
                                                      "RANGE",     "VALUE",    "DESCRIPTION"};

/// Writes one attribute of a method. Returns false if it does not have it.
bool writeAttribute(JsonWriter& json, std::string_view name, const OscMethod& method) {
    if (name == "FULL_PATH") {
        json.field(name, method.path);
    } else if (name == "ACCESS") {
        json.field(name, (method.readable ? 1 : 0) + (method.writable ? 2 : 0));
    } else if (name == "TYPE") {
        json.field(name, method.types);
    } else if (name == "DESCRIPTION" && !method.meaning.empty()) {
        json.field(name, method.meaning);
    } else if (name == "RANGE" && !method.ranges.empty()) {
        json.key(name).open('[');
        for (std::size_t i = 0; i < method.types.size(); ++i) {
            const OscRange& range = method.ranges[method.ranges.size() > 1 ? i : 0];
            json.open('{');
            if (std::isfinite(range.low)) {
                json.field("MIN", range.low);
            }
            if (std::isfinite(range.high)) {
                json.field("MAX", range.high);
            }
            json.close('}');
        }
        json.close(']');
    } else if (name == "VALUE" && method.readable) {
        json.key(name).open('[');
        if (method.values.type == 's') {
            json.value(method.values.text);
        }
        for (std::size_t i = 0; i < method.values.count; ++i) {
            json.value(method.values.numbers[i]);
        }
        json.close(']');
    } else {
        return false;
    }
    return true;
}

/// Makes the JSON of the tree below a path, in pieces.
class Tree {
public:
    /// `first`: the first methods, which are before the cursor.
    Tree(OscScene& scene, std::string below, std::vector<OscMethod> first, const OscCursor& cursor)
        : scene_(&scene), below_(std::move(below)), methods_(std::move(first)), cursor_(cursor) {}

    bool operator()(std::string& more) {
        constexpr std::size_t kMaxPieceBytes = std::size_t{64} << 10U;
        JsonWriter json(more, continues_);
        if (nodes_.empty()) {
            openNode(json, below_.empty() ? "/" : below_, below_);
        }
        bool moreComes = true;
        while (moreComes && more.size() < kMaxPieceBytes) {
            for (const OscMethod& method : methods_) {
                write(json, method);
            }
            methods_.clear();
            moreComes = scene_->describe(cursor_, below_, methods_);
        }
        if (!moreComes) {
            closeNodes(json, 0);
        }
        continues_ = json.continues();
        return moreComes;
    }

private:
    struct Node {
        std::string path; ///< without a slash at its end
        bool contents = false;
    };

    void openNode(JsonWriter& json, std::string_view shown, std::string_view path) {
        json.open('{').field("FULL_PATH", shown);
        nodes_.push_back({std::string(path)});
        // A method writes its own attributes.
        if (methods_.empty() || !isMethod(path)) {
            json.field("ACCESS", 0);
        }
    }
    [[nodiscard]] bool isMethod(std::string_view path) const {
        return std::ranges::any_of(
            methods_, [path](const OscMethod& method) { return method.path == path; });
    }

    void write(JsonWriter& json, const OscMethod& method) {
        // Close what the path is not below.
        std::size_t depth = nodes_.size();
        while (depth > 1 && method.path != nodes_[depth - 1].path &&
               !method.path.starts_with(nodes_[depth - 1].path + "/")) {
            --depth;
        }
        closeNodes(json, depth);
        while (nodes_.back().path != method.path) {
            const std::size_t begin = nodes_.back().path.size() + 1; // after the slash
            const std::string path = method.path.substr(0, method.path.find('/', begin));
            if (!std::exchange(nodes_.back().contents, true)) {
                json.key("CONTENTS").open('{');
            }
            json.textKey(std::string_view(path).substr(begin));
            openNode(json, path, path);
        }
        for (const std::string_view name : {"ACCESS", "TYPE", "RANGE", "VALUE", "DESCRIPTION"}) {
            writeAttribute(json, name, method);
        }
    }

    void closeNodes(JsonWriter& json, std::size_t depth) {
        for (; nodes_.size() > depth; nodes_.pop_back()) {
            if (nodes_.back().contents) {
                json.close('}');
            }
            json.close('}');
        }
    }

    OscScene* scene_;
    std::string below_;
    std::vector<OscMethod> methods_; // that are not written yet
    OscCursor cursor_;
    std::vector<Node> nodes_; // that are open
    bool continues_ = false;
};

} // namespace

class OscQuery::Page : public Corvid::WebPage {
public:
    Page(OscScene& scene, std::string address, unsigned short oscPort)
        : scene_(scene), address_(std::move(address)), oscPort_(oscPort) {}

    bool create(
        Corvid::WebClient* /*client*/, const ProtocolHTTP::Request& request,
        ProtocolHTTP::Reply& reply) override {
        reply.setHeader("Content-Type", "application/json");
        reply.setHeader("Cache-Control", "no-store");
        const std::string attribute =
            request.parameters().empty() ? std::string() : request.parameters().front().first;
        if (attribute == "HOST_INFO") {
            reply.setBody(hostInfo());
            return true;
        }
        std::string path = request.path();
        while (path.ends_with('/')) {
            path.pop_back();
        }
        OscCursor cursor;
        std::vector<OscMethod> methods;
        while (methods.empty() && scene_.describe(cursor, path, methods)) {
        }
        if (methods.empty()) {
            return false;
        }
        if (attribute.empty() || attribute == "CONTENTS") {
            reply.setBody(Tree(scene_, std::move(path), std::move(methods), cursor));
        } else if (std::ranges::find(kAttributes, attribute) == kAttributes.end()) {
            reply.setStatus(400);
        } else {
            const auto method = std::ranges::find(methods, path, &OscMethod::path);
            OscMethod node;
            node.path = path.empty() ? "/" : path;
            std::string body;
            JsonWriter json(body);
            json.open('{');
            const bool has = method != methods.end()
                                 ? writeAttribute(json, attribute, *method)
                                 : (attribute == "FULL_PATH" || attribute == "ACCESS") &&
                                       writeAttribute(json, attribute, node);
            json.close('}');
            reply.setStatus(has ? 200 : 204);
            reply.setBody(has ? body : std::string());
        }
        return true;
    }
    [[nodiscard]] WebPage* clone() const override { return new Page(*this); }

private:
    [[nodiscard]] std::string hostInfo() const {
        std::string body;
        JsonWriter json(body);
        json.open('{').field("NAME", "Orvel").field("OSC_PORT", oscPort_);
        if (address_ != "0.0.0.0") { // otherwise as for HTTP
            json.field("OSC_IP", address_);
        }
        json.field("OSC_TRANSPORT", "UDP").key("EXTENSIONS").open('{');
        for (const std::string_view name : {"ACCESS", "VALUE", "RANGE", "DESCRIPTION"}) {
            json.field(name, true);
        }
        json.field("LISTEN", false).close('}').close('}');
        return body;
    }

    OscScene& scene_;
    const std::string address_;
    const unsigned short oscPort_;
};

OscQuery::OscQuery(OscScene& scene, std::string address, unsigned short oscPort)
    : address_(std::move(address)) {
    server_.setName("Orvel");
    const Page page(scene, address_, oscPort);
    server_.addPage("/", page);
    server_.addPage("/*", page);
}

std::string OscQuery::open(unsigned short port, std::shared_ptr<Corvid::Loop> loop) {
    server_.setLoop(std::move(loop));
    try {
        server_.open(address_, port);
        return {};
    } catch (const Corvid::IOException& fault) {
        return fault.what();
    }
}

} // namespace Show
