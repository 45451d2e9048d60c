"""Makes texts of others fit for a terminal."""


def printable(text: str) -> str:
    """A text with control characters escaped, so that they have no effect in a terminal."""
    if text.isprintable():
        return text
    return "".join(c if c.isprintable() else repr(c)[1:-1] for c in text)
