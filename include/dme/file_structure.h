#pragma once

#include <cxxtools/serializationinfo.h>

#include <string>
#include <vector>

#include "dme/container.h"
#include "dme/context.h"
#include "dme/methods.h"
#include "dme/structure.h"

namespace dme {

// A structure whose content is extended by a JSON file: the members declared in code behave as
// in any structure, and the members of the document stored in the file are shown beside them,
// read-only. Any JSON value is a successful load; only an object has members to show, so a file
// that holds an array or a scalar shows nothing beside the declared members, and a path into it
// finds nothing (3). The file is loaded once, on first use by a read or
// a browse; a failed load gives 1 and is retried by the next request. An empty file is a
// successful load of nothing. The file's text must be exactly one JSON value.
//
// A read lists the file's members first, then the declared ones. A path segment names a
// declared member first and a member of the file only when no declared member answers it; the
// file is loaded only then. Every node of the file is governed by this structure's permission
// policy: 6 without the permission for the request's method, 8 for CREATE, UPDATE and DELETE
// (the file is never written), the node itself for READ, 7 for any other method. Type and
// schema are those of the structure: "properties" lists the declared members only.
//
// Not thread-safe: requests change the loaded content without a lock. Not copyable.
class FileStructure : public Structure {
  public:
    // `filePath` is used as given (absolute, or relative to the working directory); the file is
    // not touched here. Takes ownership of every non-null element of `elements`.
    FileStructure(const std::string& filePath, const std::vector<Element*>& elements,
                  AllowedMethods allowed, bool alwaysExpanded);

    ~FileStructure() override;
    // Serves the declared member named by the next segment; when there is none (3), loads the
    // file if needed (1 when that fails) and returns internalBrowse over its content.
    int browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Loads the file if needed (1 and nothing written when that fails), appends the file's
    // members to `out` when its document is an object, then the declared members as
    // Structure::read does; returns 0.
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // As Structure::update: declared members are updated; keys of the file are skipped as
    // unknown members. Returns 0.
    int update(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;

    // Reads and parses the file. Returns 0 when the file holds one JSON value of any kind (the
    // content is replaced) or is empty (the content is kept); 1 when the file cannot be read or its
    // text is not exactly one JSON value (the content is kept, nothing is reported). Exceptions
    // other than std::runtime_error pass.
    int loadContent();
    // 0 when a load has succeeded before; otherwise loads, remembers a success and returns
    // loadContent's result.
    int ensureContentLoaded();
    // Serves the request on the part of `node` named by the remaining path: 3 for a member
    // that `node` lacks; at the requested depth 6 without the permission for the method, 8 for
    // CREATE, UPDATE and DELETE, a copy of the part in `out` for READ (0), 7 for any other
    // method. The context is stepped back on return, also when an exception passes.
    int internalBrowse(Context& ctx, const SerializationInfo& node, const SerializationInfo& in,
                       SerializationInfo& out);

    // The document last loaded; empty before the first successful load of a non-empty file.
    const SerializationInfo& content() const { return content_; }
    bool contentLoaded() const { return contentLoaded_; }
    const std::string& filePath() const { return filePath_; }

  private:
    int serveReached(Context& ctx, const SerializationInfo& node, SerializationInfo& out);

    SerializationInfo content_;
    bool contentLoaded_ = false;
    std::string filePath_;
};

// A file structure that reloads its file before every read and every browse (also of a
// declared member), so that changes made to the file by other programs show at once. A reload
// that fails keeps the last good content, which is served as before; before the first
// successful load, requests give 1 as for a FileStructure. Not thread-safe; not copyable.
class UpdatedFileStructure : public FileStructure {
  public:
    using FileStructure::FileStructure;

    ~UpdatedFileStructure() override;
    // Reloads the file, then browses as a FileStructure.
    int browse(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
    // Reloads the file, then reads as a FileStructure.
    int read(Context& ctx, const SerializationInfo& in, SerializationInfo& out) override;
};

}  // namespace dme
