/** @file
 * Finds out whether a document is a configuration or a scene.
 */
#ifndef VANTOR_DOCUMENT_KIND_H
#define VANTOR_DOCUMENT_KIND_H

#include <filesystem>

namespace vantor
{

/** What a document is. */
enum class document_kind
{
    configuration, /**< or something that only the checks of a configuration can describe */
    scene,         /**< of the simulated server */
};

/**
 * Recognises a document by its members, also if it is damaged. A name that is not that of a file, and has
 * neither an ending nor a folder, is that of an example scene.
 *
 * @throws configuration_error if its members belong neither to a configuration nor to a scene
 */
document_kind recognise_document(const std::filesystem::path &file);

} // namespace vantor

#endif
