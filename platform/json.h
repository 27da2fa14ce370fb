/// Owning jansson values.
#pragma once

#include <jansson.h>
#include <memory>

namespace tq {

struct JsonRelease {
    void operator()(json_t* value) const { json_decref(value); }
};

struct JsonTextRelease {
    /// Back to where jansson's hooks have taken it from.
    void operator()(char* text) const
    {
        json_free_t release = nullptr;
        json_get_alloc_funcs(nullptr, &release);
        release(text);
    }
};

/// A reference to a jansson value that is released with its scope.
using JsonRef = std::unique_ptr<json_t, JsonRelease>;

/// A text of json_dumps().
using JsonText = std::unique_ptr<char, JsonTextRelease>;

} // namespace tq
