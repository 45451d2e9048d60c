/** @file
 * A fault in a configuration document.
 */
#ifndef VANTOR_CONFIGURATION_FAULT_H
#define VANTOR_CONFIGURATION_FAULT_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace vantor
{

/** Number of faults of a document that are usually described; the others are only counted. */
inline constexpr size_t most_faults = 100;

/** A fault in a configuration document. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct configuration_fault
{
    std::string pointer;            /**< where, as a JSON pointer (RFC 6901); empty for the document itself */
    std::string got;                /**< what is there */
    std::string allowed;            /**< what is allowed there, or why this is not */
    nlohmann::ordered_json nearest; /**< the closest allowed value: for an object, an object with the members
                                         to change; for a list, a number of elements; null if there is none */
    std::vector<std::string> members = {}; /**< of a rule between members: all that it names, as pointers */
};

/** The first faults of a document, and the number of all. */
class fault_list
{
public:
    /** @param most  how many faults to keep */
    explicit fault_list(size_t most = most_faults) noexcept : most_(most)
    {
    }

    /** Adds a fault, which a function returns if it is kept. */
    template <typename describe_t> void add(const describe_t &describe)
    {
        if (first_.size() < most_)
        {
            first_.push_back(describe());
        }
        ++count_;
    }

    /** The first ones. */
    [[nodiscard]] const std::vector<configuration_fault> &first() const noexcept
    {
        return first_;
    }

    /** The number of all. */
    [[nodiscard]] size_t count() const noexcept
    {
        return count_;
    }

    /** The number of those that are not kept. */
    [[nodiscard]] size_t further() const noexcept
    {
        return count_ - first_.size();
    }

private:
    size_t most_;
    size_t count_ = 0;
    std::vector<configuration_fault> first_;
};

} // namespace vantor

#endif
