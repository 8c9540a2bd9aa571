#pragma once

#include <Show/ShowFile.h>
#include <Show/desk/Activity.h>
#include <Show/player/Transport.h>

#include <Corvid/ProtocolHTTP.h>
#include <Corvid/WebPage.h>

#include <memory>
#include <utility>

namespace Show {

/// The address of the desk's picture: GET gives the activity of the file. It is computed in short
/// pieces, in the updates of the world, once for all clients.
class DeskPicture : public Corvid::WebPage {
public:
    /// Without a transport there is no picture.
    DeskPicture(ShowFile file, std::shared_ptr<const Transport> transport)
        : state_(std::make_shared<State>(State{std::move(file), std::move(transport), {}})) {}

    bool create(
        Corvid::WebClient* client, const Corvid::ProtocolHTTP::Request& request,
        Corvid::ProtocolHTTP::Reply& reply) override;
    [[nodiscard]] WebPage* clone() const override { return new DeskPicture(*this); }

private:
    struct State {
        ShowFile file;
        std::shared_ptr<const Transport> transport;
        std::shared_ptr<Activity> activity; // of the file; null until somebody asks for it
    };

    std::shared_ptr<State> state_;
};

} // namespace Show
