#pragma once

#include <cxxtools/serializationinfo.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dme/context.h"
#include "dme/hash_string.h"
#include "dme/methods.h"
#include "dme/path.h"
#include "dme/policy.h"
#include "dme/result.h"
#include "dme/value.h"

namespace dme {
namespace test {

using cxxtools::SerializationInfo;

// Gives `node` a StaticPolicy of `rights`.
inline void grant(PermissionPolicyHolder& node, AllowedMethods rights) {
    node.setPermissionPolicy(StaticPolicy(rights), PermissionPolicyHolder::DefaultPolicyReplacer());
}

// A node without children that keeps every default of Value: only `browse` is defined, and it
// reports that the path goes on below a node without children.
class BareValue : public Value {
  public:
    explicit BareValue(AllowedMethods allowed, bool alwaysExpanded = false)
        : Value(allowed, alwaysExpanded) {}

    int browse(Context&, const SerializationInfo&, SerializationInfo&) override {
        return result::NO_CHILDREN;
    }
};

// A text leaf that implements every request operation and can be observed. READ adds the
// member "value" with the text; UPDATE takes "value" from the body and reports the change;
// CREATE and DELETE do nothing but succeed. Each operation is recorded in `calls()`, by name.
class TextLeaf : public BareValue {
  public:
    explicit TextLeaf(AllowedMethods allowed, std::string text = "", bool alwaysExpanded = false)
        : BareValue(allowed, alwaysExpanded), text_(std::move(text)) {}

    const std::string& text() const { return text_; }
    const std::vector<std::string>& calls() const { return calls_; }

    const char* getType() const override { return "string"; }
    int read(Context&, const SerializationInfo&, SerializationInfo& out) override {
        calls_.push_back("read");
        out.addMember("value").setValue(text_);
        return result::DONE;
    }
    int update(Context&, const SerializationInfo& in, SerializationInfo&) override {
        calls_.push_back("update");
        in.getMember("value", text_);
        notifyChange();
        return result::DONE;
    }
    int create(Context&, const SerializationInfo&, SerializationInfo&) override {
        calls_.push_back("create");
        return result::DONE;
    }
    int destroy(Context&, const SerializationInfo&, SerializationInfo&) override {
        calls_.push_back("destroy");
        return result::DONE;
    }
    int subscribeToValue(Context&) override {
        calls_.push_back("subscribeToValue");
        return result::DONE;
    }
    int unsubscribeToValue(Context&) override {
        calls_.push_back("unsubscribeToValue");
        return result::DONE;
    }

  private:
    std::string text_;
    std::vector<std::string> calls_;
};

// A parent that holds its children by name, in order of addition. `browse` enters the child
// named by the next requested segment (3 for an unknown one); READ lists every child under its
// name, leaving out those that fail; SUBSCRIBE and UNSUBSCRIBE are handed to every child. A
// child is owned when handed over by pointer, referred to otherwise.
class TestParent : public Value {
  public:
    explicit TestParent(AllowedMethods allowed, bool alwaysExpanded = false)
        : Value(allowed, alwaysExpanded) {}

    // Attaches `child` under `name`; returns it.
    Value& add(const std::string& name, Value& child) {
        children_.emplace_back(ConstHashString(name), &child);
        child.setParent(this);
        return child;
    }
    Value& add(const std::string& name, std::unique_ptr<Value> child) {
        owned_.push_back(std::move(child));
        return add(name, *owned_.back());
    }

    const ConstHashString& getChildKey(Value* child) override {
        for (const auto& entry : children_) {
            if (entry.second == child) return entry.first;
        }
        return Path::emptyName();
    }

    int browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override {
        Value* child = find(ctx.getUrl());
        if (child == nullptr) return result::NOT_FOUND;
        ctx.next(ctx.getUrl());
        const int rc = child->process(ctx, in, out);
        ctx.prev();
        return rc;
    }

    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override {
        for (const auto& entry : children_) {
            ctx.next(entry.first);
            SerializationInfo member;
            const int rc = entry.second->process(ctx, in, member);
            ctx.prev();
            if (rc != result::DONE) continue;
            member.setName(entry.first.str());
            out.addMember(entry.first.str()) = member;
        }
        return result::DONE;
    }

    int _subscribe(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override {
        return processChildren(ctx, in, out);
    }
    int _unsubscribe(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override {
        return processChildren(ctx, in, out);
    }

  private:
    Value* find(const ConstHashString& name) const {
        for (const auto& entry : children_) {
            if (entry.first == name) return entry.second;
        }
        return nullptr;
    }

    int processChildren(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
        for (const auto& entry : children_) {
            ctx.next(entry.first);
            entry.second->process(ctx, in, out);
            ctx.prev();
        }
        return result::DONE;
    }

    std::vector<std::pair<ConstHashString, Value*>> children_;
    std::vector<std::unique_ptr<Value>> owned_;
};

}  // namespace test
}  // namespace dme
