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
- a deleted copy constructor or assignment without a comment of its own gets
  a note that the objects are not copied, since the headers do not repeat
  that at every class;
- a trailing `// ...` after a declaration's `;` (or an enumerator's `,`)
  becomes `///< ...`;
- a section becomes a member group (`@name` title, its text, `@{` ... `@}`),
  except a file-scope section that declares only classes: its text becomes a
  titled paragraph (`@par`) of the file's description;
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
    """(title, text lines after it) when the block opens a section, else
    (None, None). A title that runs on into a paragraph ends at its first
    sentence; the rest of the paragraph follows it as text."""
    texts = [text_of(b) for b in block]
    m = INLINE_TITLE_RE.match(texts[0])
    if m and not RULER_RE.match(texts[0]):
        return m.group(1).strip(' -'), [t for t in texts[1:] if not RULER_RE.match(t)]
    if not any(RULER_RE.match(t) for t in texts):
        return None, None
    rest = [t for t in texts if not RULER_RE.match(t)]
    while rest and not rest[0]:
        rest.pop(0)
    if not rest:
        return None, None
    title, body = rest[0], rest[1:]
    if body and body[0] and '. ' in title:
        title, first = title.split('. ', 1)
        body = [first] + body
    while body and not body[0]:
        body.pop(0)      # the text follows its title directly
    return title, body


def section(block, title, body, close_first):
    """The lines of a member group's opening, as many as the block has."""
    indent = block[0][:block[0].index('//')]
    lines = [indent + (CLOSE_GROUP if close_first else '') + '/** @name ' + escape(title)]
    for k in range(1, len(block)):
        lines.append(indent + ' * ' + escape(body[k - 1]) if k - 1 < len(body) else indent + ' *')
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


def section_has_members(lines, j):
    """True when the file-scope section whose title block ends before line j
    declares anything besides classes before the next section begins."""
    depth = 0
    for line in lines[j:]:
        stripped = line.strip()
        if depth == 0 and stripped.startswith('//') and (
                RULER_RE.match(text_of(line)) or INLINE_TITLE_RE.match(text_of(line))):
            return False
        code, _ = split_comment(line)
        if depth == 0 and code.strip() and not stripped.startswith('#') and not stripped.startswith('//'):
            if not SCOPE_RE.match(code) and not code.strip().startswith('}'):
                return True
        for c in blank_literals(code):
            depth += 1 if c == '{' else -1 if c == '}' else 0
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
            title, body = section_title(block)
            indent = block[0][:block[0].index('//')]
            if not described:
                # "// Name.h - what it holds" names the file on its first line.
                described = True
                name, _, rest = text_of(block[0]).partition(' ')
                rest = re.sub(r'^-\s*', '', rest)
                out.append(indent + '/// @file ' + name + (' ' + escape(rest) if rest else ''))
                out.extend(as_doc(b) for b in block[1:])
                run_doc = None
            elif title is not None and (stack or section_has_members(lines, j)):
                out.extend(section(block, title, body, grouped[-1]))
                grouped[-1] = True
                run_doc = None
            elif title is not None:
                # A section of classes only: a member group would stay empty
                # and lose its text, so the text joins the file's description.
                close = CLOSE_GROUP if grouped[-1] else ''
                grouped[-1] = False
                texts = [escape(t) for t in body]
                if texts:
                    out.append(indent + close + '/** @par ' + escape(title))
                    out.extend(indent + ' * ' + t for t in texts)
                    out.extend([indent + ' *'] * (len(block) - 1 - len(texts)))
                    out[-1] += ' @file ' + file_name + ' */'
                else:
                    out.append(close + block[0])
                    out.extend(block[1:])
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
                if DELETED_RE.search(code) and run_doc is None:
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
