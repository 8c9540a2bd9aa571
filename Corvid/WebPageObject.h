#pragma once

#include <Corvid/WebPage.h>

namespace Corvid {

/// A page made by a member function of an object. The object must outlive the page and every copy
/// of it, including the server's own.
template <class T>
class WebPageObject : public WebPage {
public:
    using Function = void (T::*)(const ProtocolHTTP::Request&, ProtocolHTTP::Reply&);

    WebPageObject(T& object, Function function) : object_(&object), function_(function) {}

    bool create(
        WebClient* /*client*/, const ProtocolHTTP::Request& request,
        ProtocolHTTP::Reply& reply) override {
        (object_->*function_)(request, reply);
        return true;
    }
    [[nodiscard]] WebPage* clone() const override { return new WebPageObject(*this); }

private:
    T* object_;
    Function function_;
};

} // namespace Corvid
