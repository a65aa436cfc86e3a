#pragma once

#include <string>
#include <string_view>

namespace sim {

/// What the module itself hears in a data call: the other side's wish to end the PPP link. It
/// carries everything else. One per channel, fed with all that comes on it during a call.
class RadioPpp {
public:
    /// The answer to a request to terminate that ends in these bytes, after which the call is over;
    /// "" without one.
    std::string answerTo(std::string_view bytes);

private:
    std::string pending;  // of a frame, still escaped
};

}  // namespace sim
