#!/usr/bin/env python3
"""Doxygen input filter for the public headers.

The headers document themselves with plain `//` comments: a block of comment
lines right above a declaration describes it, and every declaration that
follows it up to the next blank line, comment or access label (overloads and
pairs of accessors share one comment). A comment after a declaration on its
last line describes that declaration alone. The first comment block of a file
describes the file; a block between rulers (`// ----`, `// === `) or on a
`// --- title ---` line opens a section, and a block that stands alone
(a blank line after it) adds to the description of the file or class it is
in. Doxygen reads none of that by itself, so this filter rewrites the
comments into Doxygen's forms and leaves the code, line numbers included, as
it was:

- the file's first block becomes `/// @file` documentation;
- a block directly above a declaration or a #define becomes `///` lines;
- each further declaration of the same run gets the block again, as a
  leading `/** ... */` on its first line;
- a deleted copy constructor or assignment gets a note that the objects are
  not copied, since the headers do not repeat that at every class;
- a trailing `// ...` after a declaration's `;` (or an enumerator's `,`)
  becomes `///< ...`;
- a section becomes a member group (`@name` title, its text, `@{` ... `@}`);
- a standing block at file scope joins the file's description, one in a
  class joins the class's.

Comments inside inline function bodies and blocks above preprocessor lines
other than #define stay plain. Characters that Doxygen would take for
commands or HTML are escaped outside `code` and "quoted" text.

Usage (Doxygen's FILTER_PATTERNS): comment_filter.py HEADER
"""
import re
import sys

SCOPE_RE = re.compile(r'^\s*(?:template\s*<[^>]*>\s*)?(class|struct|union|enum|namespace)\b'
                      r'(?:\s+OVRA_API)?\s*(\w*)|^\s*extern\s*"C"')
ACCESS_RE = re.compile(r'^\s*(public|private|protected)\s*:')
DEFINE_RE = re.compile(r'^#\s*define\b')
DELETED_RE = re.compile(r'=\s*delete\s*;')
TRAILING_END_RE = re.compile(r'[;,]\s*$')
RULER_RE = re.compile(r'^[-=]{10,}$')
INLINE_TITLE_RE = re.compile(r'^---\s+(.*?)\s*-*$')
SPECIAL_RE = re.compile(r'([\\<>&%@#|$])')
QUOTED_RE = re.compile(r'(`[^`]*`|"[^"]*")')

SCOPE, ENUM, BODY = 'scope', 'enum', 'body'
CLOSE_GROUP = '/** @} */ '


def escape(text):
    """Text with the characters Doxygen would read as commands, HTML or
    markup escaped, except inside `code` spans and "quoted text", which it
    shows as written."""
    parts = QUOTED_RE.split(text)
    for k in range(0, len(parts), 2):
        parts[k] = SPECIAL_RE.sub(r'\\\1', parts[k])
    return ''.join(parts).replace('*/', '* /')


def split_comment(line):
    """Returns (code, comment): the line's code with string and character
    literals kept whole, and the text after its `//`, or None without one."""
    i, n = 0, len(line)
    while i < n:
        c = line[i]
        if c in '"\'':
            i += 1
            while i < n and line[i] != c:
                i += 2 if line[i] == '\\' else 1
            i += 1
        elif line.startswith('//', i):
            return line[:i], line[i + 2:]
        else:
            i += 1
    return line, None


def text_of(line):
    """The words of one comment line."""
    return line.strip()[2:].strip()


def comment_words(block):
    """A comment block's text on one line, escaped for use inside /** */."""
    return ' '.join(escape(text_of(b)) for b in block)


def as_doc(line):
    """`// text` as `/// text`, indentation kept."""
    pos = line.index('//')
    return line[:pos] + '///' + escape(line[pos + 2:])


def section_title(block):
    """(title, index of the title line) when the block opens a section."""
    texts = [text_of(b) for b in block]
    m = INLINE_TITLE_RE.match(texts[0])
    if m and not RULER_RE.match(texts[0]):
        return m.group(1).strip(' -'), 0
    if any(RULER_RE.match(t) for t in texts):
        for k, t in enumerate(texts):
            if t and not RULER_RE.match(t):
                return t, k
    return None, None


def section(block, title, at, close_first):
    """The lines of a member group's opening, as many as the block has."""
    indent = block[0][:block[0].index('//')]
    body = [escape(text_of(b)) for k, b in enumerate(block)
            if k != at and not RULER_RE.match(text_of(b))]
    lines = [indent + (CLOSE_GROUP if close_first else '') + '/** @name ' + escape(title)]
    for k in range(1, len(block)):
        lines.append(indent + ' * ' + body[k - 1] if k - 1 < len(body) else indent + ' *')
    lines[-1] += ' */ /** @{ */'
    return lines


def blank_literals(code):
    """code with the insides of string and character literals blanked."""
    return re.sub(r'"(\\.|[^"\\])*"|\'(\\.|[^\'\\])*\'', '""', code)


def trailing_comment_ends(lines, i):
    """True when the declaration that begins on line i carries a trailing
    comment on its last line (the one where it ends at its own level)."""
    depth = 0
    for line in lines[i:]:
        code, comment = split_comment(line)
        for c in blank_literals(code):
            if c in '({':
                depth += 1
            elif c in ')}':
                depth -= 1
                if depth < 0:
                    return False
        if depth == 0 and TRAILING_END_RE.search(code):
            return comment is not None
        if depth == 0 and code.rstrip().endswith('}'):
            return False
    return False


def filter_header(lines, path):
    out = []
    stack = []          # kinds of the open braces
    names = []          # the names of the open scopes ('' for bodies)
    grouped = [False]   # per scope depth: a member group is open
    statement = ''      # code of the current scope-level declaration so far
    run_doc = None      # comment shared by the current run of declarations
    run_count = 0       # declarations of that run begun so far
    described = False   # the file's description has been read
    file_name = path.replace('\\', '/').split('/')[-1]
    i = 0
    while i < len(lines):
        line = lines[i]
        stripped = line.strip()
        at_scope = BODY not in stack
        if at_scope and stripped.startswith('//'):
            j = i
            while j < len(lines) and lines[j].strip().startswith('//'):
                j += 1
            block = lines[i:j]
            following = lines[j].strip() if j < len(lines) else ''
            title, at = section_title(block)
            indent = block[0][:block[0].index('//')]
            if not described:
                # "// Name.h - what it holds" names the file on its first line.
                described = True
                name, _, rest = text_of(block[0]).partition(' ')
                rest = re.sub(r'^-\s*', '', rest)
                out.append(indent + '/// @file ' + name + (' ' + escape(rest) if rest else ''))
                out.extend(as_doc(b) for b in block[1:])
                run_doc = None
            elif title is not None:
                out.extend(section(block, title, at, grouped[-1]))
                grouped[-1] = True
                run_doc = None
            elif (following and not following.startswith('//') and not ACCESS_RE.match(following)
                  and (not following.startswith('#') or DEFINE_RE.match(following))):
                out.extend(as_doc(b) for b in block)
                run_doc = comment_words(block)
                run_count = 0
                if trailing_comment_ends(lines, j):
                    # The declaration's own comment is its summary, the block
                    # the details.
                    out[-len(block)] = out[-len(block)].replace('///', '/// @details', 1)
            else:
                # A standing note: part of the enclosing file's or class's description.
                owner = '::'.join(n for n in names if n)
                command = ('@class ' + owner) if owner else ('@file ' + file_name)
                out.append(indent + '/** ' + escape(text_of(block[0])))
                out.extend(indent + ' * ' + escape(text_of(b)) for b in block[1:])
                out[-1] += ' ' + command + ' */'   # the command's arguments end the line
                run_doc = None
            i = j
            continue
        if not stripped:
            run_doc = None
            out.append(line)
            i += 1
            continue
        code, comment = split_comment(line)
        preprocessor = stripped.startswith('#')
        if at_scope and not preprocessor:
            if ACCESS_RE.match(code):
                run_doc = None
                code = ''
            if comment is not None and TRAILING_END_RE.search(code):
                line = code + '///<' + escape(comment)
            if not statement.strip() and code.strip() and not code.strip().startswith('}'):
                # The first line of a declaration (or of an enumerator).
                if DELETED_RE.search(code):
                    line = '/** Deleted: objects of this class are not copied. */ ' + line
                elif run_doc is not None and run_count > 0:
                    details = '@details ' if trailing_comment_ends(lines, i) else ''
                    line = '/** ' + details + run_doc + ' */ ' + line
                if run_doc is not None:
                    run_count += 1
        for c in ('' if preprocessor else blank_literals(code)):
            if c == '{':
                kind, name = BODY, ''
                if BODY not in stack:
                    m = SCOPE_RE.match(statement)
                    if m:
                        kind = ENUM if m.group(1) == 'enum' else SCOPE
                        name = m.group(2) or ''
                stack.append(kind)
                names.append(name)
                grouped.append(False)
                statement = ''
                if kind != BODY:
                    run_doc = None   # the members have comments of their own
            elif c == '}':
                if stack:
                    if grouped.pop():
                        line = line.replace('}', CLOSE_GROUP + '}', 1)
                    names.pop()
                    if stack.pop() != BODY:
                        run_doc = None
                statement = ''
            elif c == ';' or (c == ',' and stack and stack[-1] == ENUM):
                statement = ''
            else:
                statement += c
        out.append(line)
        i += 1
    if grouped[0]:
        out.append(CLOSE_GROUP.strip())
    return out


def main():
    path = sys.argv[1]
    with open(path, encoding='utf-8') as f:
        lines = f.read().split('\n')
    sys.stdout.write('\n'.join(filter_header(lines, path)))


if __name__ == '__main__':
    main()
