/// What a client sends about its host, checked and brought into the form that is stored.
#pragma once

#include "masterd/identity.h"
#include "platform/json.h"

#include <string>
#include <string_view>

namespace masterd {

/// A request's body as a JSON object. Null for anything else, with why not in `fault`: short English text.
tq::JsonRef parseBodyObject(std::string_view body, std::string& fault);

/// A record to store, or why the body is refused.
struct ComposedRecord {
    std::string text;  ///< compact JSON object; empty when the body is refused
    std::string fault; ///< short English text; empty when it is not
};

/// The host object of a PUT or POST body: "uuid" and "hostName" of the identity, then the body's known keys
/// in its order. None is mandatory; unknown keys are left out; of a key that stands twice the last holds.
/// A "uuid", "hostId" or "hostName" of the body must be a string and counts for nothing.
/// Refused: a body that is not a JSON object, and a known key whose value is of the wrong type.
ComposedRecord composeHostRecord(std::string_view body, const Identity& identity);

} // namespace masterd
