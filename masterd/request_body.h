/// Takes a request's body from the HTTP library, within this service's limits.
#pragma once

#include "masterd/web_service.h"

#include <httplib.h>
#include <string>

namespace masterd {

/// A body, or why there is none to work on. After a fault the rest of the request may still be unread.
struct RequestBody {
    std::string text;
    int faultStatus = 0; ///< 0: no fault; else 400 or 413
    std::string fault;
};

/// `reader` is null for a request that the library reads no body of. A body counts as it is after its content
/// coding is undone, so that a small one cannot grow large. Refused with 400: a length that is no number or
/// stands twice, a length beside a transfer coding, a transfer coding other than "chunked", a body where none
/// belongs, a form, and a body that ends early; with 413 one over MAX_BODY_BYTES.
RequestBody readRequestBody(const httplib::Request& request, const httplib::ContentReader* reader);

} // namespace masterd
