/** @file
 * Recognises clients on a TCP connection that are not hosts: web browsers and others that send HTTP or TLS.
 */
#ifndef VANTOR_LINUX_FIRST_LINE_H
#define VANTOR_LINUX_FIRST_LINE_H

#include <cstddef>
#include <cstdint>

/**
 * Checks the start of a connection. A web page can make a browser send an HTTP request with any body to any
 * port of the machine, and the lines of this body could be commands. The first line of such a connection is
 * always the request line: a word, a space, and a path, "*" or a text with "http:" or "HTTP/". No command
 * starts with a word.
 */
class first_line_t
{
public:
    /**
     * Checks the next bytes of the connection.
     *
     * @return false when they show that the client sends HTTP or TLS; known at the end of the first line that
     *         is not blank, at the latest
     */
    bool accepts(const char *data, size_t size);

private:
    enum class state_t : uint8_t
    {
        blank,        /**< nothing but white space so far */
        word,         /**< in the first word, which may be an HTTP method */
        after_word,   /**< in the white space after it */
        rest_of_line, /**< in the text after that, which is not a path */
        tls_record,   /**< after the first byte of a TLS handshake */
        host,         /**< the client is a host */
        not_a_host,   /**< it is not */
    };

    state_t next_state(char c);
    state_t state_in_rest_of_line(char c);

    state_t state_ = state_t::blank;
    size_t matched_ = 0; /**< how many letters of "http" the last bytes of the line match */
};

#endif
