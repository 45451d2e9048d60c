/** @file
 * Reads and executes the requests of viewers.
 */
#ifndef VANTOR_VIEW_REQUESTS_H
#define VANTOR_VIEW_REQUESTS_H

#include <functional>
#include <map>
#include <string>

#include <nlohmann/json.hpp>

#include "vantor/errors.h"
#include "view/viewers.h"

namespace vantor
{

/** A request cannot be executed; the message is for the person who made it. */
class request_error : public error
{
public:
    using error::error;
};

/** How requests of a type are executed. */
struct request_rule
{
    bool needs_control = true; /**< only the viewer that controls may ask */
    std::function<void(const viewer_request &)> execute;
};

/** The rules of all types of requests. */
using request_rules = std::map<std::string, request_rule>;

/** Returns the type of a request; throws request_error if it has none. */
std::string request_type(const nlohmann::json &document);

/** Returns a number of a request; throws request_error if it is missing, or less or greater than allowed. */
double number_in(const nlohmann::json &document, const std::string &name, double least, double most);

/** Returns an object of a request; throws request_error if it is missing. */
const nlohmann::json &object_in(const nlohmann::json &document, const std::string &name);

/** Returns a text of a request; empty if it is missing; throws request_error if it is something else. */
std::string text_in(const nlohmann::json &document, const std::string &name);

/**
 * Exchanges messages with viewers, as far as that is possible at once: a source that always has a frame
 * leaves no other time for it. Then executes all requests that wait. A viewer is told why its request cannot
 * be executed.
 *
 * @param loop  of the viewers
 */
void serve_viewers(viewers &all, const request_rules &rules, event_loop &loop);

} // namespace vantor

#endif
