"""What is taken for a mutation, and what isn't."""

import unittest

from mutations import mutations_of


def changes(source, kind=None):
    return [mutation.apply(source) for mutation in mutations_of(source)
            if kind in (None, mutation.kind)]


def body(statement):
    return "void f() {\n  " + statement + "\n}\n"


class Mutations(unittest.TestCase):
    def test_operators_between_blanks(self):
        self.assertEqual(changes("bool b = x <= y && z;\n"),
                         ["bool b = x < y && z;\n", "bool b = x <= y || z;\n"])

    def test_brackets_of_templates_and_references_are_no_operators(self):
        for source in ("std::vector<std::array<T, N>> v;\n", "template <class T = A<B> >\nclass C;\n",
                       "void f(T&& a, const T& b, T* c);\n", "bool operator==(A, A);\n"):
            self.assertEqual(changes(source), [])

    def test_constants(self):
        self.assertEqual(changes("int a = 0x0F;\n"), ["int a = 16;\n"])
        self.assertEqual(changes("auto a = 1'000u;\n"), ["auto a = 1001u;\n"])
        self.assertEqual(changes("bool a = true;\n"), ["bool a = false;\n"])

    def test_pure_functions_stay(self):
        self.assertEqual(changes("virtual void F() const = 0;\n"), [])

    def test_comments_texts_and_directives_stay(self):
        source = '// a + 1\n/* b + 2 */\n#if C + 3 == 4\nconst char* d = "e + 5";\n#endif\n'
        self.assertEqual(changes(source), [])

    def test_conditions(self):
        self.assertEqual(changes(body("if (a(b)) c();"), "negate"), [body("if (!(a(b))) c();")])

    def test_conditions_that_declare_stay(self):
        self.assertEqual(changes(body("if (T a = b()) c();"), "negate"), [])

    def test_statements(self):
        self.assertEqual(changes(body("a.b(c);"), "drop"), [body(";")])
        self.assertEqual(changes(body("a = b(c, [] { return d; });"), "drop"), [body(";")])
        self.assertEqual(changes(body("if (a) break;"), "drop"), [body("if (a) ;")])

    def test_declarations_and_returns_stay(self):
        for statement in ("return a;", "std::vector<T> a = b;", "const T a = b;", "T a(b);"):
            self.assertEqual(changes(body(statement), "drop"), [], statement)

    def test_declarations_of_a_class_stay(self):
        self.assertEqual(changes("class A {\n public:\n  A(int b);\n  int c(d);\n};\n", "drop"), [])

    def test_description_has_the_whole_line(self):
        source = "int f() {\n    return 1   + a;\n}\n"
        described = [mutation.describe(source) for mutation in mutations_of(source)]
        self.assertIn(("return 1 + a;", "return 1 - a;"), described)


if __name__ == "__main__":
    unittest.main()
