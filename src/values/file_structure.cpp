#include "dme/file_structure.h"

#include <cxxtools/serializationerror.h>

#include <stdexcept>

#include "dme/helper.h"
#include "dme/json.h"
#include "dme/result.h"

namespace dme {

// ---- FileStructure ----

FileStructure::FileStructure(const std::string& filePath, const std::vector<Element*>& elements,
                             AllowedMethods allowed, bool alwaysExpanded)
    : Structure(elements, allowed, alwaysExpanded), filePath_(filePath) {}

FileStructure::~FileStructure() = default;

int FileStructure::browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    const int rc = Structure::browse(ctx, in, out);
    if (rc != result::NOT_FOUND) return rc;
    const int loaded = ensureContentLoaded();
    if (loaded != result::DONE) return loaded;
    return internalBrowse(ctx, content_, in, out);
}

// `out` may already hold the resource path, so the file's members are added to it rather than
// replacing it. Only an object has named members to show beside the declared ones: a file that
// holds an array or a scalar adds nothing to the structure's read.
int FileStructure::read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    const int rc = ensureContentLoaded();
    if (rc != result::DONE) return rc;
    if (content_.category() == SerializationInfo::Object) {
        for (const SerializationInfo& member : content_) out.addMember(member.name()) <<= member;
    }
    return Structure::read(ctx, in, out);
}

int FileStructure::update(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    return Structure::update(ctx, in, out);
}

// parseJson refuses text that the plain cxxtools parser would let through (garbage, trailing
// text); its JsonSyntaxError, like the parser's own errors, is a std::runtime_error.
int FileStructure::loadContent() {
    try {
        const std::string text = utils::Helper::getFileContent(filePath_);
        if (text.empty()) return result::DONE;
        SerializationInfo document = parseJson(text);
        content_.swap(document);
        return result::DONE;
    } catch (const std::runtime_error&) {
        return result::FAILED;
    }
}

int FileStructure::ensureContentLoaded() {
    if (contentLoaded_) return result::DONE;
    const int rc = loadContent();
    if (rc == result::DONE) contentLoaded_ = true;
    return rc;
}

int FileStructure::internalBrowse(Context& ctx, const SerializationInfo& node,
                                  const SerializationInfo& in, SerializationInfo& out) {
    const ConstHashString segment = ctx.getUrl();
    if (segment.empty()) return serveReached(ctx, node, out);
    try {
        const SerializationInfo& member = node.getMember(segment.str());
        WalkStep step(ctx, segment);
        return internalBrowse(ctx, member, in, out);
    } catch (const cxxtools::SerializationError&) {
        return result::NOT_FOUND;
    }
}

int FileStructure::serveReached(Context& ctx, const SerializationInfo& node,
                                SerializationInfo& out) {
    const Method method = ctx.method();
    if (!hasPermission(method, ctx)) return result::FORBIDDEN;
    switch (method) {
        case CREATE:
        case UPDATE:
        case DELETE:
            return result::NOT_SUPPORTED;
        case READ:
            out <<= node;
            return result::DONE;
        default:
            return result::UNKNOWN_METHOD;
    }
}

// ---- UpdatedFileStructure ----

UpdatedFileStructure::~UpdatedFileStructure() = default;

int UpdatedFileStructure::browse(Context& ctx, const SerializationInfo& in,
                                 SerializationInfo& out) {
    loadContent();
    return FileStructure::browse(ctx, in, out);
}

int UpdatedFileStructure::read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) {
    loadContent();
    return FileStructure::read(ctx, in, out);
}

}  // namespace dme
