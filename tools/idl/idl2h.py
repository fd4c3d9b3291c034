#!/usr/bin/env python3
"""Generates the C++ side of the codec core's binary interface from its IDL.

The IDL file is the single source of the records, enumerations, interfaces and
identifiers: widl compiles it into the type library, and this script turns it
into two headers:

  <Name>Types.h    enums, records, interfaces, IIDs, CLSIDs and the LIBID, for
                   every module, tool and host;
  <Name>Reflect.h  name/offset/slot tables of the same declarations, used only
                   by the tests that hold the C++ headers against the type
                   library and against the fixed layout.

Only the IDL subset that VCCodecsCore.idl uses is understood: imports,
`typedef [v1_enum] enum` with integer-literal members, `typedef struct` with
scalar, record and fixed-array fields, `[object, uuid(...)] interface X :
IUnknown` with HRESULT methods, forward interface declarations and a library
block with coclasses. Anything else is reported as an error with its line, so
that the IDL cannot drift into something the generator silently mistranslates.

Usage:
  idl2h.py VCCodecsCore.idl OUTDIR               write both headers into OUTDIR
  idl2h.py VCCodecsCore.idl OUTDIR --check REFDIR  also compare with REFDIR;
                                                 exit 1 and show a diff if stale
"""

import argparse
import difflib
import os
import re
import sys
from dataclasses import dataclass, field
from typing import List, Optional


class IdlError(Exception):
    pass


# ---------------------------------------------------------------------------
# Tokens
# ---------------------------------------------------------------------------

@dataclass
class Token:
    kind: str  # 'id', 'num', 'str', 'attr', 'punct'
    text: str
    line: int
    doc: List[str] = field(default_factory=list)  # '//' lines just before the token


_PUNCT = set('{}();,:=*-')


def tokenize(src: str) -> List[Token]:
    """Splits IDL text into tokens. A bracketed run `[...]` becomes one 'attr'
    token holding its raw inner text (attributes, or an array dimension).
    A run of '//' lines directly above a token becomes that token's doc, so
    that the explanations in the IDL reach the generated header."""
    tokens: List[Token] = []
    doc: List[str] = []
    i, line, n = 0, 1, len(src)
    blank_line = re.compile(r'[ \t]*\n')
    word = re.compile(r'[A-Za-z_][A-Za-z0-9_]*')
    number = re.compile(r'0[xX][0-9A-Fa-f]+|[0-9]+')

    def emit(kind: str, text: str):
        nonlocal doc
        tokens.append(Token(kind, text, line, doc))
        doc = []

    while i < n:
        c = src[i]
        if c == '\n':
            line += 1
            i += 1
            if blank_line.match(src, i):
                doc = []  # a blank line ends a comment block
        elif c.isspace():
            i += 1
        elif src.startswith('//', i):
            end = src.find('\n', i)
            end = n if end < 0 else end
            text = src[i + 2:end]
            doc.append(text[1:] if text.startswith(' ') else text)
            i = end
        elif src.startswith('/*', i):
            end = src.find('*/', i + 2)
            if end < 0:
                raise IdlError(f'line {line}: unterminated comment')
            line += src.count('\n', i, end)
            i = end + 2
        elif c == '"':
            end = src.find('"', i + 1)
            if end < 0:
                raise IdlError(f'line {line}: unterminated string')
            emit('str', src[i + 1:end])
            i = end + 1
        elif c == '[':
            depth, j = 1, i + 1
            while j < n and depth:
                if src[j] == '[':
                    depth += 1
                elif src[j] == ']':
                    depth -= 1
                elif src[j] == '"':
                    j = src.find('"', j + 1)
                    if j < 0:
                        raise IdlError(f'line {line}: unterminated string in attributes')
                j += 1
            if depth:
                raise IdlError(f'line {line}: unbalanced "["')
            emit('attr', src[i + 1:j - 1])
            line += src.count('\n', i, j)
            i = j
        elif c.isalpha() or c == '_':
            m = word.match(src, i)
            emit('id', m.group(0))
            i = m.end()
        elif c.isdigit():
            m = number.match(src, i)
            emit('num', m.group(0))
            i = m.end()
        elif c in _PUNCT:
            emit('punct', c)
            i += 1
        else:
            raise IdlError(f'line {line}: unexpected character {c!r}')
    return tokens


# ---------------------------------------------------------------------------
# Model
# ---------------------------------------------------------------------------

@dataclass
class EnumMember:
    name: str
    text: str   # the literal as written, kept for the generated header
    value: int  # the 32-bit pattern, 0..0xFFFFFFFF
    doc: List[str] = field(default_factory=list)


@dataclass
class Enum:
    name: str
    members: List[EnumMember]
    doc: List[str] = field(default_factory=list)


@dataclass
class Field:
    type: str
    name: str
    dim: Optional[int]
    doc: List[str] = field(default_factory=list)


@dataclass
class Record:
    name: str
    fields: List[Field]
    doc: List[str] = field(default_factory=list)


@dataclass
class Param:
    attrs: List[str]
    type: str  # C-like spelling, e.g. "IVCPacket**"
    name: str


@dataclass
class Method:
    name: str
    params: List[Param]
    doc: List[str] = field(default_factory=list)


@dataclass
class Interface:
    name: str
    base: str
    uuid: str
    help: Optional[str]
    methods: List[Method]
    doc: List[str] = field(default_factory=list)


@dataclass
class Coclass:
    name: str
    uuid: str
    default: str
    interfaces: List[str]


@dataclass
class Library:
    name: str
    uuid: str
    major: int
    minor: int
    lcid: int
    coclasses: List[Coclass] = field(default_factory=list)


@dataclass
class Idl:
    enums: List[Enum] = field(default_factory=list)
    records: List[Record] = field(default_factory=list)
    interfaces: List[Interface] = field(default_factory=list)
    library: Optional[Library] = None


# Types the platform header declares; IDL spellings that differ in C++ map here.
_PLATFORM_TYPES = {
    'LONG': 'LONG', 'LONGLONG': 'LONGLONG', 'DWORD': 'DWORD', 'BOOL': 'BOOL',
    'BSTR': 'BSTR', 'BYTE': 'BYTE', 'SHORT': 'SHORT', 'short': 'SHORT',
    'float': 'float', 'double': 'double', 'HRESULT': 'HRESULT',
    'IUnknown': 'IUnknown', 'IStream': 'IStream', 'RECT': 'RECT', 'SIZE': 'SIZE',
}

_UUID_RE = re.compile(r'^[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}$')


def split_attrs(raw: str) -> List[str]:
    """Splits attribute text at top-level commas: 'in, size_is(, *x)' -> ['in', 'size_is(, *x)']."""
    parts, depth, cur = [], 0, ''
    for c in raw:
        if c == '(':
            depth += 1
        elif c == ')':
            depth -= 1
        if c == ',' and depth == 0:
            parts.append(cur.strip())
            cur = ''
        else:
            cur += c
    if cur.strip():
        parts.append(cur.strip())
    return parts


def attr_arg(attrs: List[str], name: str) -> Optional[str]:
    for a in attrs:
        m = re.fullmatch(name + r'\s*\((.*)\)', a, re.S)
        if m:
            return m.group(1).strip()
    return None


class Parser:
    def __init__(self, tokens: List[Token]):
        self.toks = tokens
        self.pos = 0
        self.idl = Idl()
        self.names = set()  # every declared name, members included: C++ puts them in one scope
        self.types = set()  # enumerations, records and interfaces, forward-declared ones included

    # -- token helpers --
    def peek(self, k: int = 0) -> Optional[Token]:
        p = self.pos + k
        return self.toks[p] if p < len(self.toks) else None

    def next(self) -> Token:
        t = self.peek()
        if t is None:
            raise IdlError('unexpected end of file')
        self.pos += 1
        return t

    def error(self, msg: str, tok: Optional[Token] = None):
        tok = tok or self.peek()
        where = f'line {tok.line}' if tok else 'end of file'
        raise IdlError(f'{where}: {msg}')

    def expect(self, kind: str, text: Optional[str] = None) -> Token:
        t = self.next()
        if t.kind != kind or (text is not None and t.text != text):
            self.error(f'expected {text or kind}, found {t.text!r}', t)
        return t

    def accept(self, kind: str, text: Optional[str] = None) -> Optional[Token]:
        t = self.peek()
        if t and t.kind == kind and (text is None or t.text == text):
            self.pos += 1
            return t
        return None

    def declare(self, name: str, tok: Token):
        if name in self.names:
            self.error(f'{name} declared twice', tok)
        self.names.add(name)

    def known_type(self, name: str) -> bool:
        return name in _PLATFORM_TYPES or name in self.types

    # -- grammar --
    def parse(self) -> Idl:
        while self.peek():
            t = self.peek()
            if t.kind == 'id' and t.text == 'import':
                self.next()
                self.expect('str')
                self.expect('punct', ';')
            elif t.kind == 'id' and t.text == 'typedef':
                self.parse_typedef()
            elif t.kind == 'id' and t.text == 'interface':
                self.parse_forward()
            elif t.kind == 'attr':
                attrs = split_attrs(self.next().text)
                kw = self.expect('id')
                if kw.text == 'interface':
                    self.parse_interface(attrs, t.doc)
                elif kw.text == 'library':
                    self.parse_library(attrs)
                else:
                    self.error(f'unsupported declaration {kw.text!r}', kw)
            else:
                self.error(f'unsupported declaration {t.text!r}', t)
        return self.idl

    def parse_forward(self):
        self.expect('id', 'interface')
        self.types.add(self.expect('id').text)
        self.expect('punct', ';')

    def parse_typedef(self):
        doc = self.expect('id', 'typedef').doc
        attrs = split_attrs(self.next().text) if self.peek().kind == 'attr' else []
        kw = self.expect('id')
        if kw.text == 'enum':
            if 'v1_enum' not in attrs:
                self.error('enumerations must be [v1_enum] so that they are 32-bit on the wire', kw)
            self.parse_enum(doc)
        elif kw.text == 'struct':
            if attrs:
                self.error('records take no attributes here', kw)
            self.parse_struct(doc)
        else:
            self.error(f'unsupported typedef of {kw.text!r}', kw)

    def parse_tail_name(self, tag: Token):
        name = self.expect('id')
        if name.text != tag.text:
            self.error(f'typedef name {name.text} differs from tag {tag.text}', name)
        self.expect('punct', ';')

    def parse_enum(self, doc: List[str]):
        tag = self.expect('id')
        self.declare(tag.text, tag)
        self.types.add(tag.text)
        self.expect('punct', '{')
        members: List[EnumMember] = []
        while not self.accept('punct', '}'):
            name = self.expect('id')
            self.declare(name.text, name)
            self.expect('punct', '=')
            neg = self.accept('punct', '-') is not None
            num = self.expect('num')
            value = int(num.text, 0)
            value = -value if neg else value
            if not -0x80000000 <= value <= 0xFFFFFFFF:
                self.error(f'{name.text} does not fit 32 bits', num)
            text = ('-' if neg else '') + num.text
            members.append(EnumMember(name.text, text, value & 0xFFFFFFFF, name.doc))
            if not self.accept('punct', ','):
                if self.peek().text != '}':
                    self.error(f'enumeration values must be integer literals ({name.text})')
        self.parse_tail_name(tag)
        self.idl.enums.append(Enum(tag.text, members, doc))

    def parse_type(self) -> str:
        """Reads a type spelling: one known identifier followed by stars."""
        t = self.expect('id')
        if not self.known_type(t.text):
            self.error(f'unknown type {t.text!r}', t)
        stars = ''
        while self.accept('punct', '*'):
            stars += '*'
        return t.text + stars

    def parse_struct(self, doc: List[str]):
        tag = self.expect('id')
        self.expect('punct', '{')
        fields: List[Field] = []
        while not self.accept('punct', '}'):
            fdoc = self.peek().doc
            ftype = self.parse_type()
            if '*' in ftype:
                self.error('records carry addresses as LONGLONG, not as pointers')
            fname = self.expect('id')
            dim = None
            if self.peek().kind == 'attr':
                dtok = self.next()
                if not re.fullmatch(r'\s*\d+\s*', dtok.text):
                    self.error('array dimensions must be integer literals', dtok)
                dim = int(dtok.text)
            self.expect('punct', ';')
            if any(f.name == fname.text for f in fields):
                self.error(f'field {fname.text} declared twice', fname)
            fields.append(Field(ftype, fname.text, dim, fdoc))
        self.declare(tag.text, tag)
        self.types.add(tag.text)
        self.parse_tail_name(tag)
        self.idl.records.append(Record(tag.text, fields, doc))

    def parse_interface(self, attrs: List[str], doc: List[str]):
        name = self.expect('id')
        if 'object' not in attrs:
            self.error(f'{name.text}: only [object] interfaces are supported', name)
        uuid = attr_arg(attrs, 'uuid')
        if not uuid or not _UUID_RE.match(uuid):
            self.error(f'{name.text}: missing or malformed uuid', name)
        help_text = attr_arg(attrs, 'helpstring')
        if help_text is not None:
            help_text = help_text.strip('"')
        self.expect('punct', ':')
        base = self.expect('id').text
        if base != 'IUnknown' and base not in {i.name for i in self.idl.interfaces}:
            self.error(f'{name.text}: base {base} is not declared', name)
        self.declare(name.text, name)
        self.types.add(name.text)
        self.expect('punct', '{')
        methods: List[Method] = []
        while not self.accept('punct', '}'):
            methods.append(self.parse_method(name.text, methods))
        self.expect('punct', ';')
        self.idl.interfaces.append(Interface(name.text, base, uuid.upper(), help_text, methods, doc))

    def parse_method(self, iface: str, methods: List[Method]) -> Method:
        ret = self.expect('id')
        if ret.text != 'HRESULT':
            self.error(f'{iface}: methods return HRESULT', ret)
        mname = self.expect('id')
        if any(m.name == mname.text for m in methods):
            # Overloads would reorder the vtable on some compilers.
            self.error(f'{iface}::{mname.text} is declared twice', mname)
        self.expect('punct', '(')
        params: List[Param] = []
        if self.accept('id', 'void'):
            self.expect('punct', ')')
        elif not self.accept('punct', ')'):
            while True:
                ptok = self.peek()
                if ptok.kind != 'attr':
                    self.error(f'{iface}::{mname.text}: every argument needs [in] or [out]', ptok)
                pattrs = split_attrs(self.next().text)
                if 'in' not in pattrs and 'out' not in pattrs:
                    self.error(f'{iface}::{mname.text}: argument without direction', ptok)
                ptype = self.parse_type()
                if 'out' in pattrs and not ptype.endswith('*'):
                    self.error(f'{iface}::{mname.text}: [out] argument must be a pointer', ptok)
                pname = self.expect('id')
                params.append(Param(pattrs, ptype, pname.text))
                if self.accept('punct', ')'):
                    break
                self.expect('punct', ',')
        self.expect('punct', ';')
        return Method(mname.text, params, ret.doc)

    def parse_library(self, attrs: List[str]):
        name = self.expect('id')
        uuid = attr_arg(attrs, 'uuid')
        version = attr_arg(attrs, 'version')
        lcid = attr_arg(attrs, 'lcid')
        if not uuid or not _UUID_RE.match(uuid) or not version or not re.fullmatch(r'\d+\.\d+', version):
            self.error('library needs uuid(...) and version(major.minor)', name)
        major, minor = (int(v) for v in version.split('.'))
        lib = Library(name.text, uuid.upper(), major, minor, int(lcid, 0) if lcid else 0)
        self.expect('punct', '{')
        while not self.accept('punct', '}'):
            t = self.peek()
            if t.kind == 'id' and t.text == 'importlib':
                self.next()
                self.expect('punct', '(')
                self.expect('str')
                self.expect('punct', ')')
                self.expect('punct', ';')
            elif t.kind == 'id' and t.text == 'interface':
                self.next()
                iname = self.expect('id')
                if iname.text not in {i.name for i in self.idl.interfaces}:
                    self.error(f'library names undeclared interface {iname.text}', iname)
                self.expect('punct', ';')
            elif t.kind == 'attr':
                lib.coclasses.append(self.parse_coclass(split_attrs(self.next().text)))
            else:
                self.error(f'unsupported library content {t.text!r}', t)
        self.expect('punct', ';')
        self.idl.library = lib

    def parse_coclass(self, attrs: List[str]) -> Coclass:
        self.expect('id', 'coclass')
        name = self.expect('id')
        uuid = attr_arg(attrs, 'uuid')
        if not uuid or not _UUID_RE.match(uuid):
            self.error(f'coclass {name.text}: missing or malformed uuid', name)
        self.expect('punct', '{')
        default, ifaces = None, []
        while not self.accept('punct', '}'):
            iattrs = split_attrs(self.next().text) if self.peek().kind == 'attr' else []
            self.expect('id', 'interface')
            iname = self.expect('id')
            self.expect('punct', ';')
            if iname.text not in {i.name for i in self.idl.interfaces}:
                self.error(f'coclass {name.text}: undeclared interface {iname.text}', iname)
            ifaces.append(iname.text)
            if 'default' in iattrs:
                default = iname.text
        self.expect('punct', ';')
        if default is None:
            self.error(f'coclass {name.text} has no [default] interface', name)
        return Coclass(name.text, uuid.upper(), default, ifaces)


def parse_idl(text: str) -> Idl:
    idl = Parser(tokenize(text)).parse()
    if idl.library is None:
        raise IdlError('no library block')
    return idl


# ---------------------------------------------------------------------------
# C++ output
# ---------------------------------------------------------------------------

def cpp_type(idl_type: str) -> str:
    base = idl_type.rstrip('*')
    return _PLATFORM_TYPES.get(base, base) + idl_type[len(base):]


def wrap_call(head: str, args: List[str], tail: str, indent: str, width: int = 120) -> List[str]:
    """Lays out `head(arg, arg) tail`, breaking after commas past `width`."""
    one = f'{indent}{head}({", ".join(args)}){tail}'
    if len(one) <= width or not args:
        return [one]
    lines, cur = [], f'{indent}{head}('
    cont = ' ' * (len(indent) + 4)
    for i, a in enumerate(args):
        piece = a + (', ' if i + 1 < len(args) else f'){tail}')
        if len(cur) + len(piece.rstrip()) > width and cur.strip() and not cur.endswith('('):
            lines.append(cur.rstrip())
            cur = cont
        cur += piece
    lines.append(cur.rstrip())
    return lines


def comment_lines(doc: List[str], indent: str) -> List[str]:
    return [f'{indent}// {d}'.rstrip() for d in doc]


def enum_underlying(e: Enum) -> str:
    # Every member must keep its exact 32-bit pattern; a member at or above
    # 0x80000000 written as a plain literal only fits an unsigned base.
    return 'uint32_t' if any(m.value > 0x7FFFFFFF and not m.text.startswith('-') for m in e.members) else 'int32_t'


GENERATED_NOTE = """\
// Generated from {idl} by tools/idl/idl2h.py. Do not edit: change the IDL and
// regenerate (the idl_header_current test fails while this file is stale).
"""


def gen_types(idl: Idl, idl_name: str) -> str:
    out = [GENERATED_NOTE.format(idl=idl_name).rstrip('\n')]
    out += [
        '//',
        '// The codec core\'s binary interface in C++: enumerations, records,',
        '// interfaces and their identifiers, matching the type library byte for',
        '// byte (layout checks in VCCodecsCoreLayout.h). Declarations only; any',
        '// thread. Enumerations are unscoped with a fixed 32-bit base so that',
        '// members read unqualified and records keep their size; the ones with',
        '// members at or above 0x80000000 use an unsigned base to keep the bit',
        '// pattern exact.',
        '#pragma once',
        '',
        '#include <cstdint>',
        '',
        '#include "VCGuid.h"',
        '#include "VCPlatform.h"',
        '',
    ]
    for e in idl.enums:
        out += comment_lines(e.doc, '')
        out.append(f'enum {e.name} : {enum_underlying(e)} {{')
        for m in e.members:
            out += comment_lines(m.doc, '  ')
            out.append(f'  {m.name} = {m.text},')
        out.append('};')
        out.append('')
    for r in idl.records:
        out += comment_lines(r.doc, '')
        out.append(f'struct {r.name} {{')
        for f in r.fields:
            out += comment_lines(f.doc, '  ')
            dim = f'[{f.dim}]' if f.dim is not None else ''
            out.append(f'  {cpp_type(f.type)} {f.name}{dim};')
        out.append('};')
        out.append('')
    for i in idl.interfaces:
        out.append(f'struct {i.name};')
    out.append('')
    for i in idl.interfaces:
        out += comment_lines(([i.help + '.'] if i.help else []) + i.doc, '')
        out.append(f'struct {i.name} : public {i.base} {{')
        for m in i.methods:
            out += comment_lines(m.doc, '  ')
            args = [f'{cpp_type(p.type)} {p.name}' for p in m.params]
            out += wrap_call(f'virtual HRESULT STDMETHODCALLTYPE {m.name}', args, ' = 0;', '  ')
        out.append('};')
        out.append(f'VC_DECLARE_IID({i.name}, "{i.uuid}");')
        out.append('')
    lib = idl.library
    for c in lib.coclasses:
        out.append(f'inline constexpr CLSID CLSID_{c.name} = vc::MakeGuid("{c.uuid}");')
    out.append(f'inline constexpr GUID LIBID_{lib.name} = vc::MakeGuid("{lib.uuid}");')
    out.append('')
    out.append('namespace vc {')
    out.append(f'inline constexpr WORD k{lib.name}VersionMajor = {lib.major};')
    out.append(f'inline constexpr WORD k{lib.name}VersionMinor = {lib.minor};')
    out.append(f'inline constexpr LCID k{lib.name}Lcid = 0x{lib.lcid:X};')
    out.append('}  // namespace vc')
    return '\n'.join(out) + '\n'


REFLECT_PRELUDE = """\
//
// Name, offset and slot tables of every declaration in {types}, for the
// tests that compare the C++ side with the type library and with the fixed
// record layout. Tests only: the slot tables are filled at static
// initialisation and rely on the Itanium C++ ABI (g++, clang, MinGW g++).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "{types}"

namespace vc::reflect {{

struct FieldInfo {{
  const char* pszName;
  size_t cbOffset;
  size_t cbSize;
}};

struct RecordInfo {{
  const char* pszName;
  size_t cbSize;
  size_t cbAlign;
  std::span<const FieldInfo> fields;
}};

struct EnumMemberInfo {{
  const char* pszName;
  uint32_t dwValue;
}};

struct EnumInfo {{
  const char* pszName;
  size_t cbSize;
  std::span<const EnumMemberInfo> members;
}};

struct MethodInfo {{
  const char* pszName;
  size_t nSlot;  // index in the vtable; IUnknown's three come first
  std::span<const char* const> params;
}};

struct InterfaceInfo {{
  const char* pszName;
  const IID* pIid;
  std::span<const MethodInfo> methods;
}};

struct CoclassInfo {{
  const char* pszName;
  const CLSID* pClsid;
  const char* pszDefault;
  std::span<const char* const> interfaces;
}};

// Vtable slot of a virtual method. Under the Itanium ABI a pointer to a
// virtual member function holds 1 + the byte offset of its vtable entry.
template <class C, class F>
size_t VtableSlot(F C::*pmf) {{
  struct Rep {{
    uintptr_t ptr;
    ptrdiff_t adj;
  }};
  static_assert(sizeof(pmf) == sizeof(Rep), "pointer to member function is not the Itanium pair");
  Rep rep;
  std::memcpy(&rep, &pmf, sizeof rep);
  return (rep.ptr & 1u) ? (rep.ptr - 1) / sizeof(void*) : SIZE_MAX;
}}
"""


def gen_reflect(idl: Idl, idl_name: str, types_name: str) -> str:
    out = [GENERATED_NOTE.format(idl=idl_name).rstrip('\n')]
    out.append(REFLECT_PRELUDE.format(types=types_name).rstrip('\n'))
    out.append('')
    for r in idl.records:
        out.append(f'inline constexpr FieldInfo kFields_{r.name}[] = {{')
        for f in r.fields:
            out.append(f'    {{"{f.name}", offsetof({r.name}, {f.name}), sizeof({r.name}::{f.name})}},')
        out.append('};')
    out.append('')
    out.append('inline constexpr RecordInfo kRecords[] = {')
    for r in idl.records:
        out.append(f'    {{"{r.name}", sizeof({r.name}), alignof({r.name}), kFields_{r.name}}},')
    out.append('};')
    out.append('')
    for e in idl.enums:
        out.append(f'inline constexpr EnumMemberInfo kMembers_{e.name}[] = {{')
        for m in e.members:
            out.append(f'    {{"{m.name}", static_cast<uint32_t>({m.name})}},')
        out.append('};')
    out.append('')
    out.append('inline constexpr EnumInfo kEnums[] = {')
    for e in idl.enums:
        out.append(f'    {{"{e.name}", sizeof({e.name}), kMembers_{e.name}}},')
    out.append('};')
    out.append('')
    for i in idl.interfaces:
        for m in i.methods:
            if m.params:
                names = ', '.join(f'"{p.name}"' for p in m.params)
                out.append(f'inline constexpr const char* kParams_{i.name}_{m.name}[] = {{{names}}};')
        out.append(f'inline const MethodInfo kMethods_{i.name}[] = {{')
        for m in i.methods:
            params = f'kParams_{i.name}_{m.name}' if m.params else '{}'
            out.append(f'    {{"{m.name}", VtableSlot(&{i.name}::{m.name}), {params}}},')
        out.append('};')
        out.append('')
    out.append('')
    out.append('inline const InterfaceInfo kInterfaces[] = {')
    for i in idl.interfaces:
        out.append(f'    {{"{i.name}", &IID_{i.name}, kMethods_{i.name}}},')
    out.append('};')
    out.append('')
    for c in idl.library.coclasses:
        names = ', '.join(f'"{n}"' for n in c.interfaces)
        out.append(f'inline constexpr const char* kInterfaces_{c.name}[] = {{{names}}};')
    out.append('')
    out.append('inline constexpr CoclassInfo kCoclasses[] = {')
    for c in idl.library.coclasses:
        out.append(f'    {{"{c.name}", &CLSID_{c.name}, "{c.default}", kInterfaces_{c.name}}},')
    out.append('};')
    out.append('')
    out.append('}  // namespace vc::reflect')
    return '\n'.join(out) + '\n'


# ---------------------------------------------------------------------------
# Driver
# ---------------------------------------------------------------------------

def write_if_changed(path: str, text: str):
    try:
        with open(path, encoding='utf-8', newline='') as f:
            if f.read() == text:
                return
    except FileNotFoundError:
        pass
    with open(path, 'w', encoding='utf-8', newline='\n') as f:
        f.write(text)


def main(argv: List[str]) -> int:
    ap = argparse.ArgumentParser(description=__doc__.split('\n\n')[0])
    ap.add_argument('idl', help='the IDL file')
    ap.add_argument('outdir', help='folder to write the generated headers into')
    ap.add_argument('--check', metavar='REFDIR',
                    help='compare the generated headers with the committed ones in REFDIR')
    args = ap.parse_args(argv)

    with open(args.idl, encoding='utf-8') as f:
        text = f.read()
    idl_name = os.path.basename(args.idl)
    stem = os.path.splitext(idl_name)[0]
    types_name = f'{stem}Types.h'
    reflect_name = f'{stem}Reflect.h'
    try:
        idl = parse_idl(text)
    except IdlError as e:
        print(f'{args.idl}: {e}', file=sys.stderr)
        return 2

    outputs = {
        types_name: gen_types(idl, idl_name),
        reflect_name: gen_reflect(idl, idl_name, types_name),
    }
    os.makedirs(args.outdir, exist_ok=True)
    for name, content in outputs.items():
        write_if_changed(os.path.join(args.outdir, name), content)

    if not args.check:
        return 0
    stale = False
    for name, content in outputs.items():
        ref_path = os.path.join(args.check, name)
        try:
            with open(ref_path, encoding='utf-8', newline='') as f:
                ref = f.read()
        except FileNotFoundError:
            ref = ''
        if ref != content:
            stale = True
            print(f'{ref_path} is out of date with {args.idl}; regenerate it with\n'
                  f'  python3 tools/idl/idl2h.py {args.idl} {args.check}', file=sys.stderr)
            sys.stderr.writelines(difflib.unified_diff(
                ref.splitlines(keepends=True), content.splitlines(keepends=True),
                fromfile=ref_path, tofile=f'generated/{name}', n=2))
    return 1 if stale else 0


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
