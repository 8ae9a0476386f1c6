#pragma once

#include <cxxtools/serializationinfo.h>

#include <string>
#include <utility>
#include <vector>

#include "dme/atomic_value.h"
#include "dme/context.h"
#include "dme/methods.h"
#include "dme/smart_pointer.h"
#include "dme/subscription.h"

namespace dme {

// A number shown as one of a fixed list of names. The number lives in an
// AtomicValue<unsigned int> node of the application's; this node stands in front of it and
// speaks text: READ answers the name of the current number ("" when no name has it), UPDATE
// takes a name and stores its number through the number's node (which validates it in its own
// way and notifies its observer), and the schema lists the names under "enum", also for a
// read-only enumeration. Names are matched byte for byte; the first pair wins for a name or a
// number that occurs twice. An unknown name raises "Value not in list" naming the text, and the
// number stays as it was.
//
// Subscriptions are attached to the number's node, so observers hear of every change of the
// number, whoever makes it; the enumeration's own observer slot stays empty.
//
// The list is referred to, not copied: the application keeps it, and the name texts it points
// to, alive and unchanged for the life of the enumeration. The number's node is owned when
// given by pointer and only referred to when given by reference.
// Not thread-safe; not copyable.
class EnumValue : public AtomicValue<std::string> {
  public:
    // (name, number) pairs, in the order shown in the schema.
    using List = std::vector<std::pair<const char*, unsigned int>>;

    // Refers to `value`. `allowed` goes to AtomicValue<std::string>, which removes browsing.
    EnumValue(const List& list, AtomicValue<unsigned int>& value, AllowedMethods allowed);
    // Takes ownership of `value`, which must not be null.
    EnumValue(const List& list, AtomicValue<unsigned int>* value, AllowedMethods allowed);
    EnumValue(const EnumValue&) = delete;
    EnumValue& operator=(const EnumValue&) = delete;
    // Deletes the number's node when it is owned.
    ~EnumValue() override;

    // Adds "readonly": true, then the "enum" list; returns 0.
    int serializeReadOnly(Context& ctx, const SerializationInfo& in,
                          SerializationInfo& out) override;
    // Adds "enum": every name of the list, in order, duplicates included; returns 0.
    int serializeSchemaFormat(Context& ctx, const SerializationInfo& in,
                              SerializationInfo& out) override;
    // Both return the number's node's result, or let its exception pass.
    int subscribe(Context& ctx, ISubscribable::IObserver& observer) override;
    int unsubscribe(Context& ctx, ISubscribable::IObserver& observer) override;
    // The name of the current number, "" when no pair has it.
    std::string getValue(Context& ctx) override;
    // Accepts every text: setValue checks the name. In the checking pass of an all-or-nothing
    // UPDATE (isValidationPass), which stores nothing, checks the name and its number instead.
    void validateValue(Context& ctx, const std::string& value) override;
    // Stores the number of the name `value` through the number's node's updateValue and returns
    // its result. Throws "Value not in list" for an unknown name; the number node's own
    // exceptions pass unchanged.
    int setValue(Context& ctx, const std::string& value) override;

    // The name of the first pair whose number is `number`, or "".
    std::string intToString(Context& ctx, unsigned int number);
    // The number of the first pair whose name is exactly `name`; throws dme::Exception
    // "Value not in list" (detail: `name`) when there is none.
    unsigned int stringToInt(Context& ctx, const std::string& name);

  private:
    SmartPointer<AtomicValue<unsigned int>> atomicValue_;
    const List* list_;
};

}  // namespace dme
