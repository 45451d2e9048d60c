/** @file
 * An item's entry in a collection.
 */
#ifndef VANTOR_COLLECTION_STREAM_H
#define VANTOR_COLLECTION_STREAM_H

#include <string>

namespace vantor
{

/** An item's entry in a collection. */
struct collection_stream
{
    std::string name;   /**< name of its files, without extension */
    std::string digest; /**< SHA-512 of its metadata document */
};

} // namespace vantor

#endif
