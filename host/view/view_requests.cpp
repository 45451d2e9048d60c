/** @file
 * Reads and executes the requests of viewers.
 */
#include "view/view_requests.h"

#include <exception>

#include "recording/number_text.h"
#include "view/view_messages.h"

namespace vantor
{
namespace
{

/** More bytes than the type of any request has. */
constexpr size_t longest_type = 100;

/** Executes a request; throws why that is impossible. */
void execute(viewers &all, const request_rules &rules, const viewer_request &request)
{
    const auto rule = rules.find(request.type);
    if (rule == rules.end())
    {
        throw request_error("This view does not know the request \"" + request.type + "\".");
    }
    if (rule->second.needs_control && !all.controls(request.viewer))
    {
        throw request_error("Another viewer controls: press \"Take control\" first.");
    }
    rule->second.execute(request);
}

/** What was asked for next. Requests can take long: what happens meanwhile, such as Ctrl-C, is noticed
 * between them. */
std::optional<viewer_request> next_request(viewers &all, event_loop &loop)
{
    loop.run_until([] { return false; }, loop.now());
    loop.check_cancelled();
    return all.next_request();
}

} // namespace

std::string request_type(const nlohmann::json &document)
{
    if (!document.is_object() || !document.contains("type") || !document["type"].is_string())
    {
        throw request_error("A request is a JSON object with a member \"type\", which is a text.");
    }
    auto type = document["type"].get<std::string>();
    if (type.size() > longest_type)
    {
        throw request_error("\"type\" is longer than that of any request.");
    }
    return type;
}

double number_in(const nlohmann::json &document, const std::string &name, double least, double most)
{
    const auto found = document.find(name);
    const bool known = found != document.end() && found->is_number();
    if (!known || !(found->get<double>() >= least && found->get<double>() <= most))
    {
        throw request_error("\"" + name + "\" must be a number from " + three_digits(least) + " to " +
                            three_digits(most) + ".");
    }
    return found->get<double>();
}

const nlohmann::json &object_in(const nlohmann::json &document, const std::string &name)
{
    const auto found = document.find(name);
    if (found == document.end() || !found->is_object())
    {
        throw request_error("\"" + name + "\" must be an object.");
    }
    return *found;
}

std::string text_in(const nlohmann::json &document, const std::string &name)
{
    const auto found = document.find(name);
    if (found == document.end())
    {
        return {};
    }
    if (!found->is_string())
    {
        throw request_error("\"" + name + "\" must be a text.");
    }
    return found->get<std::string>();
}

void serve_viewers(viewers &all, const request_rules &rules, event_loop &loop)
{
    while (const auto request = next_request(all, loop))
    {
        try
        {
            execute(all, rules, *request);
        }
        catch (const cancelled &)
        {
            throw;
        }
        catch (const std::exception &refusal)
        {
            all.send(request->viewer, failed_message(request->type, refusal.what()));
        }
    }
}

} // namespace vantor
