#!/usr/bin/env python3
"""Prints a header with the comments that Doxygen needs where our convention leaves them out.

Our convention: a comment documents the declarations after it up to the next blank line or comment. And a
copy or move operation, a destructor or a defaulted comparison without a comment does what its class's
comment says. Doxygen wants a comment for each declaration. Private parts and specialisations of structs are
left out.
"""

import re
import sys

SCOPE = re.compile(r"^\s*(template\s*<.*>\s*)?(class|struct|enum|union|namespace|extern \"C\")\b")
LABEL = re.compile(r"^\s*(public|protected|private):")
SPECIALISATION = re.compile(r"^template <[^>]*>\nstruct [A-Z_]* ?[\w:]+<.*?^};$", re.DOTALL | re.MULTILINE)
STRING = re.compile(r'"(\\.|[^"\\])*"|\'(\\.|[^\'\\])*\'|//.*')


def special_comment(declaration, class_name):
    """Returns the comment for what a class's own comment covers, or None."""
    name = re.escape(class_name) if class_name else r"(?!)"
    if re.match(rf"(virtual )?~{name}\(", declaration):
        return "Ends the object; see the class."
    if re.match(rf"(constexpr )?{name}\((const )?{name}(<.*?>)? ?&", declaration):
        return "Copies or moves; the class says what is shared."
    if re.search(rf"^(constexpr )?{name}(<.*?>)?& operator=\(", declaration):
        return "Copies or moves; the class says what is shared."
    if re.search(r"operator(==|<=>|!=)\(", declaration) and "default" in declaration:
        return "Compares all fields."
    return None


class Filter:
    def __init__(self, text):
        self.lines = SPECIALISATION.sub("", text).splitlines()
        self.output = []
        self.scopes = []  # names of classes; None for namespaces
        self.comment = []

    def skip_private_part(self, number):
        """Returns the line of the next label or of the end of the class."""
        depth = 0
        while True:
            number += 1
            code = STRING.sub("", self.lines[number])
            if depth == 0 and (LABEL.match(code) or code.strip().startswith("}")):
                return number
            depth += code.count("{") - code.count("}")

    def run(self):
        number = 0
        while number < len(self.lines):
            line = self.lines[number]
            stripped = line.strip()
            if stripped.startswith("///") and not stripped.startswith("///<"):
                self.comment = []
                while number < len(self.lines) and self.lines[number].strip().startswith("///"):
                    self.comment.append(self.lines[number])
                    self.output.append(self.lines[number])
                    number += 1
                number = self.declaration(number, documented=True)
            elif stripped == "private:":
                number = self.skip_private_part(number)
            elif not stripped or stripped.startswith(("//", "#", "/*")) or LABEL.match(line):
                self.comment = []
                self.output.append(line)
                number += 1
            elif stripped.startswith("}"):
                self.comment = []
                if self.scopes:
                    self.scopes.pop()
                self.output.append(line)
                number += 1
            else:
                number = self.declaration(number, documented=False)
        return "\n".join(self.output) + "\n"

    def declaration(self, number, documented):
        """Copies one declaration, or the beginning of a scope, to the output."""
        start = number
        depth = parentheses = 0
        while number < len(self.lines):
            code = STRING.sub("", self.lines[number])
            depth += code.count("{") - code.count("}")
            parentheses += code.count("(") - code.count(")")
            number += 1
            # A comma ends an enumerator, but not the bases of a class.
            ends = (";", "}") if SCOPE.match(" ".join(self.lines[start:number])) else (";", "}", ",")
            if depth == 0 and parentheses == 0 and (code.rstrip().endswith(ends)
                                                     or not code.strip() or code.startswith("#")):
                break
            if depth > 0 and self.opens_scope(start, number):
                self.output.extend(self.lines[start:number])
                self.scopes.append(self.scope_name(start))
                self.comment = []
                return number
        declaration = self.lines[start:number]
        if not documented and not any("///<" in line for line in declaration):
            self.output.extend(self.missing_comment(declaration))
        self.output.extend(declaration)
        return number

    def opens_scope(self, start, end):
        text = " ".join(self.lines[start:end])
        text = re.sub(r"template\s*<[^{]*?>\s*(?=class|struct)", "", text)
        return bool(SCOPE.match(text)) and text.rstrip().endswith("{")

    def scope_name(self, start):
        text = re.sub(r"template\s*<.*?>\s*", "", self.lines[start])
        text = re.sub(r"\b[A-Z_]{4,}\b", "", text)
        if not re.match(r"\s*(class|struct|enum)\b", text):
            text = re.sub(r"\b[A-Z_]{4,}\b", "", self.lines[start + 1])
        match = re.match(r"\s*(class|struct)\s+(?:\[\[\w+\]\]\s*)?(?:\w+::)*(\w+)", text)
        return match[2] if match else None

    def missing_comment(self, declaration):
        indent = re.match(r"\s*", declaration[0])[0]
        joined = " ".join(line.strip() for line in declaration)
        plain = re.sub(r"^(\[\[nodiscard\]\]|explicit|friend|inline|template\s*<.*?>|[A-Z_]+_API)\s+", "",
                       joined)
        class_name = self.scopes[-1] if self.scopes else None
        special = special_comment(plain, class_name)
        if special:
            return [f"{indent}/// {special}"]
        if joined.startswith(("using namespace", "friend class", "static_assert", "extern template",
                              "class ", "struct ")) or "= delete" in joined:
            return []
        return self.comment


if __name__ == "__main__":
    with open(sys.argv[1], encoding="utf-8") as header:
        sys.stdout.write(Filter(header.read()).run())
