#pragma once

#include <cxxtools/serializationinfo.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "dme/context.h"
#include "dme/methods.h"
#include "dme/result.h"
#include "dme/value.h"
#include "test_nodes.h"

namespace dme {
namespace test {

// Every method and browsing.
constexpr std::uint32_t ALL_METHODS = 0x1F;

// Gives `root` a policy that grants `rights` (as the data model gives its root one), then
// attaches the tree below it, so that every node knows its path and inherits that policy.
inline void attachRoot(Value& root, AllowedMethods rights = ALL_METHODS) {
    grant(root, rights);
    root.setParent(nullptr);
}

// A text leaf, always expanded: READ writes its text, UPDATE stores the input's text. Counts
// the reads, updates and (un)subscriptions it serves. Schema type "string".
class StringLeaf : public Value {
  public:
    explicit StringLeaf(std::string text = "", AllowedMethods allowed = ALL_METHODS)
        : Value(allowed, true), text_(std::move(text)) {}

    const std::string& text() const { return text_; }
    int reads() const { return reads_; }
    int updates() const { return updates_; }
    int subscriptions() const { return subscriptions_; }
    int unsubscriptions() const { return unsubscriptions_; }

    const char* getType() const override { return "string"; }
    int browse(Context&, const SerializationInfo&, SerializationInfo&) override {
        return result::NO_CHILDREN;
    }
    int read(Context&, const SerializationInfo&, SerializationInfo& out) override {
        ++reads_;
        out.setValue(text_);
        return result::DONE;
    }
    int update(Context&, const SerializationInfo& in, SerializationInfo&) override {
        ++updates_;
        in.getValue(text_);
        return result::DONE;
    }
    int _subscribe(Context&, const SerializationInfo&, SerializationInfo&) override {
        ++subscriptions_;
        return result::DONE;
    }
    int _unsubscribe(Context&, const SerializationInfo&, SerializationInfo&) override {
        ++unsubscriptions_;
        return result::DONE;
    }

  private:
    std::string text_;
    int reads_ = 0;
    int updates_ = 0;
    int subscriptions_ = 0;
    int unsubscriptions_ = 0;
};

// A leaf, always expanded, whose READ and UPDATE run the functions given: to make a child
// answer nothing, fail, throw or record what it saw. An absent function answers 8.
class FunctionLeaf : public Value {
  public:
    using Operation = std::function<int(Context& ctx, const cxxtools::SerializationInfo& in,
                                        cxxtools::SerializationInfo& out)>;

    explicit FunctionLeaf(Operation read, Operation update = Operation())
        : Value(ALL_METHODS, true), read_(std::move(read)), update_(std::move(update)) {}

    int browse(Context&, const SerializationInfo&, SerializationInfo&) override {
        return result::NO_CHILDREN;
    }
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override {
        return read_ ? read_(ctx, in, out) : result::NOT_SUPPORTED;
    }
    int update(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override {
        return update_ ? update_(ctx, in, out) : result::NOT_SUPPORTED;
    }

  private:
    Operation read_;
    Operation update_;
};

}  // namespace test
}  // namespace dme
