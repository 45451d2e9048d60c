/** @file
 * A scripted server in virtual time.
 */
#include "scripted_server.h"

#include <utility>

namespace vantor::test
{

scripted_server::scripted_server(manual_clock &clock) : clock_(clock), line_(clock), moment_(clock.now())
{
    line_.on_write([this](const std::string &bytes) { receive(bytes); });
}

void scripted_server::on(const std::string &command, reaction what)
{
    script_.on(command, std::move(what));
}

void scripted_server::pause(manual_clock::duration span) noexcept
{
    moment_ += span;
}

void scripted_server::send(const std::string &bytes)
{
    line_.arrive(moment_, bytes);
}

void scripted_server::close()
{
    line_.close(moment_);
}

client::link_factory scripted_server::links()
{
    return [this] {
        input_.clear();
        return line_.open();
    };
}

/** Executes the complete commands. */
void scripted_server::receive(const std::string &bytes)
{
    moment_ = clock_.now();
    input_ += bytes;
    for (auto end = input_.find('\n'); end != std::string::npos; end = input_.find('\n'))
    {
        const auto line = input_.substr(0, end);
        input_.erase(0, end + 1);
        script_.react(*this, line);
    }
}

} // namespace vantor::test
