"""A header as words, and a place in them."""

import re

TOKEN = re.compile(r"""\s+|//[^\n]*|/\*.*?\*/|(?P<token>@?\w+|'[^'\n]*'|"[^"\n]*"|\.\.\.|[^\s\w])""", re.S)
DIRECTIVE = re.compile(r"^[ \t]*#[^\n]*", re.M)
# What makes a header fit for C as well, and nothing else that could stand between two directives.
GUARDED = re.compile(r'^#ifdef __cplusplus\n(?:extern "C" \{|\})\n#endif', re.M)


class NotUnderstood(Exception):
    pass


class Tokens:
    """The words of one header without comments and directives; reads from the first to the last."""

    def __init__(self, path, text):
        self._path = path
        self._tokens, self._at = [], 0
        blank = lambda found: re.sub(r"[^\n]", " ", found[0])
        text = DIRECTIVE.sub(blank, GUARDED.sub(blank, text))
        position = 0
        while position < len(text):
            found = TOKEN.match(text, position)
            if found["token"]:
                self._tokens.append((found["token"], text.count("\n", 0, position) + 1))
            position = found.end()

    def _peek(self, ahead=0):
        return self._tokens[self._at + ahead][0] if self._at + ahead < len(self._tokens) else ""

    def _next(self, expected=None):
        token = self._peek()
        if not token or (expected and token != expected):
            raise NotUnderstood(f"{self._where()}: {expected or 'more'} expected, not {token or 'the end'}")
        self._at += 1
        return token

    def _skip(self, token):
        if self._peek() == token:
            self._at += 1
            return True
        return False

    def _where(self):
        return f"{self._path}:{self._tokens[min(self._at, len(self._tokens) - 1)][1]}"

    def _until(self, *ends):
        """The tokens up to one of `ends` outside of any brackets, and over it."""
        taken, depth = [], 0
        while depth or self._peek() not in ends:
            token = self._next()
            depth += token in ("(", "<", "[", "{")
            depth -= token in (")", ">", "]", "}")
            taken.append(token)
        self._next()
        return taken

    def _list(self, end):
        """Names between an opening bracket and `end`, each without what it is specialised with."""
        return [part.split("<")[0] for part in " ".join(self._until(end)).replace(" ", "").split(",")]
