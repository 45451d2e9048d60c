"""Makes texts of others fit for a terminal."""


def printable(text: str) -> str:
    """A text without control characters, which a terminal would obey."""
    if text.isprintable():
        return text
    return "".join(c if c.isprintable() else repr(c)[1:-1] for c in text)
