/// Memory of the JSON library in a target that uses the record's converter.
#pragma once

namespace fuzz {

/// Releases at its end what the JSON library took in its scope and did not give back. The converter keeps a
/// document on purpose when it descends into it (hostdb/tqclntdb_json.h): in a process of one run that is
/// nothing, in one of a million runs it is all memory. No JSON value may live on behind the scope.
class JsonScope {
public:
    JsonScope();
    JsonScope(const JsonScope&) = delete;
    JsonScope& operator=(const JsonScope&) = delete;
    ~JsonScope();
};

} // namespace fuzz
