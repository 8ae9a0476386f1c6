#pragma once

#include <cxxtools/serializationinfo.h>

#include <functional>
#include <map>
#include <string>

#include "dme/atomic_value.h"
#include "dme/container.h"
#include "dme/context.h"
#include "dme/hash_string.h"
#include "dme/methods.h"
#include "dme/value.h"

namespace dme {

// An object node whose members are text keys and text values computed by the application on
// demand: every request fetches the current map through the getter, and changes go back
// through the setter as a whole map. A read lists every key in ascending order; an update of
// the node replaces the whole map with the input's members; a member named in the path
// ("/labels/location") is read or changed on its own, keeping every other key. A single shared
// entry and a single shared string value serve whichever key a request names: browsing renames
// the entry to that key, and the name stays until the next browse.
//
// The member value allows READ, and UPDATE when the node was built with a setter; it inherits
// the node's permission policy. A key that the map lacks gives 3, also for an update of one
// member, which can change a key but never add one. The schema is that of a plain value
// ("type": "unknown", no members described).
//
// Not thread-safe: a browse writes the requested key into the shared entry, so requests that
// address members of one node must not overlap. Not copyable.
class DynamicFlatStructure : public Value {
  public:
    using Map = std::map<std::string, std::string>;

    // The shared member descriptor; its name is the key last browsed.
    class DynamicFlatStructureEntry : public Entry {
      public:
        using Entry::Entry;
        ~DynamicFlatStructureEntry() override;
    };

    // The shared member value: a string value (at most 65535 bytes) that reads and writes the
    // map entry whose key is its own key in the node, the one last browsed.
    class DynamicFlatStructureAtomicValue : public AtomicValue<std::string> {
      public:
        // `allowed` less the browse bit.
        DynamicFlatStructureAtomicValue(std::function<Map()> getter,
                                        std::function<void(const Map&)> setter,
                                        AllowedMethods allowed);
        ~DynamicFlatStructureAtomicValue() override;

        // The map's value at the own key. Throws std::out_of_range when the map lacks the key
        // and std::bad_function_call without a getter.
        std::string getValue(Context& ctx) override;
        // Passes the current map, with the value at the own key replaced by `value`, to the
        // setter; returns 0. Throws std::out_of_range, and stores nothing, when the map lacks
        // the key; std::bad_function_call without a getter or setter.
        int setValue(Context& ctx, const std::string& value) override;

      private:
        std::function<Map()> getter_;
        std::function<void(const Map&)> setter_;
    };

    // A read-only map: the member value allows READ only and an update of the node gives 2.
    DynamicFlatStructure(std::function<Map()> getter, AllowedMethods allowed, bool alwaysExpanded);
    // A writable map: the member value allows READ and UPDATE.
    DynamicFlatStructure(std::function<Map()> getter, std::function<void(const Map&)> setter,
                         AllowedMethods allowed, bool alwaysExpanded);

    ~DynamicFlatStructure() override;
    // Renames the shared entry to the next requested segment and lets it serve the request;
    // 3 when the map lacks that key. Other exceptions pass.
    int browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // The key last browsed, for the member value; std::runtime_error("Cannot find child key in
    // dynamic flat structure") for any other child.
    const ConstHashString& getChildKey(Value* child) override;
    // Makes `out` an object with one member per key, in ascending order, each holding the value
    // as an 8-bit text with its bytes as they are; returns 0.
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Without a setter: 2, nothing changed. Otherwise builds a new map from the members of
    // `in` (the first of two members with one name wins) and passes it to the setter: keys the
    // input lacks are dropped. Returns 0. A member that is not a text throws
    // cxxtools::SerializationConversionError and the setter is not called.
    int update(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;

  private:
    DynamicFlatStructure(std::function<Map()> getter, std::function<void(const Map&)> setter,
                         AllowedMethods memberAllowed, AllowedMethods allowed, bool alwaysExpanded);

    std::function<Map()> getter_;
    std::function<void(const Map&)> setter_;
    DynamicFlatStructureEntry entry_;
};

}  // namespace dme
