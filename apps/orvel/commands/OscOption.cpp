#include "commands/OscOption.h"

#include "network/NetworkOptions.h"
#include "process/Output.h"

#include <Corvid/InetAddress.h>

#include <utility>

namespace OrvelTool {

namespace {

/// Parses "ADDR:PORT" or "PORT"; false if it is neither.
bool parse(const std::string& text, Show::OscInput::Settings& settings) {
    const auto colon = text.rfind(':');
    if (colon != std::string::npos) {
        settings.address = text.substr(0, colon);
    }
    const std::string port = colon == std::string::npos ? text : text.substr(colon + 1);
    const auto address = Corvid::InetAddress::getByAddress(settings.address);
    return address.isValid() && !address.isMulticast() && !port.empty() &&
           port.find_first_not_of("0123456789") == std::string::npos &&
           CLI::detail::lexical_cast(port, settings.port);
}

std::string checkPlace(const std::string& text) {
    Show::OscInput::Settings settings;
    return parse(text, settings) ? ""
                                 : "expected PORT or ADDR:PORT, such as 9000 or 0.0.0.0:9000, "
                                   "found \"" +
                                       text + "\"";
}

std::string checkScale(const std::string& text) {
    float scale = 0.0F;
    return CLI::detail::lexical_cast(text, scale) && scale >= 1e-6F && scale <= 1e6F
               ? ""
               : "expected a number from 1e-6 to 1e6, found \"" + text + "\"";
}

} // namespace

void OscOption::declare(CLI::App& app) {
    app.add_option(
           "--osc", text_,
           "Accept Open Sound Control at this port, over UDP and TCP, from this machine only, or "
           "on the interface with this address (0.0.0.0: all interfaces; port 0: any free port)")
        ->type_name("[ADDR:]PORT")
        ->check(CLI::Validator(checkPlace, "", "osc"));
    app.add_option("--osc-scale", scale_, "Scene units per unit of ADM-OSC coordinates")
        ->type_name("X")
        ->check(CLI::Validator(checkScale, "", "scale"))
        ->capture_default_str();
    app.add_option(
           "--osc-reply-port", replyPort_,
           "Answer queries over UDP to this port of the sender as well (ADM-OSC: 4002)")
        ->type_name("N")
        ->check(NetworkOptions::portValidator());
    app.add_option(
           "--osc-query", queryPort_,
           "Describe the OSC paths as JSON (OSCQuery) over HTTP at this port of the same address "
           "(0: any free port)")
        ->type_name("N")
        ->check(CLI::Range(0, 65535));
    app.add_option(
           "--osc-feedback", feedback_,
           "Send what changes to this receiver over UDP; may be given several times")
        ->type_name("HOST:PORT")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(CLI::Validator(checkHostAndPort, "", "feedback"));
}

std::string OscOption::address() const {
    Show::OscInput::Settings settings;
    parse(text_, settings);
    return settings.address;
}

bool OscOption::check(bool open) const {
    if (open || !given() || isThisMachine(Corvid::InetAddress::getByAddress(address()))) {
        return true;
    }
    report(
        "--osc " + text_ +
        ": Open Sound Control has no keys, so anyone who reaches this machine could "
        "drive the scene; add --open if that is meant");
    return false;
}

void OscOption::announce(
    Announcement& announcement, const NetworkOptions& network, const Show::OscInput& input) const {
    network.announce(announcement, "_osc._udp", address(), input.port());
    if (queryPort_) {
        network.announce(announcement, "_oscjson._tcp", address(), input.queryPort());
    }
}

std::unique_ptr<Show::OscInput> OscOption::open(
    Orvel::World& world, std::shared_ptr<Corvid::Loop> loop,
    std::function<void(Orvel::CommandEvent&)> apply) const {
    Show::OscInput::Settings settings;
    parse(text_, settings);
    settings.scale = scale_;
    settings.replyPort = replyPort_;
    settings.feedback = feedback_;
    settings.queryPort = queryPort_;
    settings.report = [](const std::string& message) { report(message); };
    settings.loop = std::move(loop);
    settings.apply = std::move(apply);
    auto input = std::make_unique<Show::OscInput>(world, settings);
    if (!input->isOpen()) {
        report(input->error());
        return nullptr;
    }
    report(
        "accepting Open Sound Control at " + settings.address + ":" +
        std::to_string(input->port()));
    if (queryPort_) {
        report(
            "describing its paths at http://" + settings.address + ":" +
            std::to_string(input->queryPort()) + "/");
    }
    return input;
}

} // namespace OrvelTool
