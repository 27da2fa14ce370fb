/// Owning jansson values.
#pragma once

#include <cstdlib>
#include <jansson.h>
#include <memory>

namespace tq {

struct JsonRelease {
    void operator()(json_t* value) const { json_decref(value); }
};

struct JsonTextRelease {
    void operator()(char* text) const { std::free(text); }
};

/// A reference to a jansson value that is released with its scope.
using JsonRef = std::unique_ptr<json_t, JsonRelease>;

/// A text of json_dumps().
using JsonText = std::unique_ptr<char, JsonTextRelease>;

} // namespace tq
