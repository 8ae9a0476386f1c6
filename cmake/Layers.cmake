# The engine library is built from its layers, bottom to top (docs/architecture.md). Each layer
# is an object library of the sources directly in its folder. Its link check is a shared
# library of its own objects and those of every layer below it, linked with --no-undefined: a
# layer that calls a function of a layer above it fails the build there. Upward includes are
# refused by the layer test (scripts/check-layers.sh).
set(DME_LAYER_OBJECTS "")

# dme_layer(NAME FOLDER): the next layer up, made of FOLDER/*.cpp.
function(dme_layer name folder)
    file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
    set(target dme-layer-${name})
    add_library(${target} OBJECT ${sources})
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/include)
    target_link_libraries(${target} PUBLIC quill-vara-common PkgConfig::CXXTOOLS)
    target_compile_options(${target} PRIVATE ${DME_WARNINGS} -fno-semantic-interposition)
    set(objects ${DME_LAYER_OBJECTS} $<TARGET_OBJECTS:${target}>)
    set(DME_LAYER_OBJECTS ${objects} PARENT_SCOPE)
    # Sanitizer runtimes are linked into executables only, so their builds skip the check.
    if(NOT DME_SANITIZE)
        add_library(dme-layer-check-${name} SHARED ${objects})
        target_link_libraries(dme-layer-check-${name} PRIVATE quill-vara-common
                              PkgConfig::CXXTOOLS)
        target_link_options(dme-layer-check-${name} PRIVATE LINKER:--no-undefined)
    endif()
endfunction()

dme_layer(names src/tree/names)
dme_layer(sessions src/access/sessions)
dme_layer(request src/request)
dme_layer(access src/access)
dme_layer(notification src/notification)
dme_layer(tree src/tree)
dme_layer(values src/values)
dme_layer(collections src/collections)
dme_layer(engine src/request/engine)
