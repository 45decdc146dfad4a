#!/usr/bin/env python3
"""What mutators.py makes of C++ text."""

import unittest

import mutators

# Text, and what becomes of it, one mutant each; "..." stands for the text in a function's body.
CHANGES = {
    "return a < b;": ["return a <= b;", "return a >= b;", "return {};"],
    "return a == 'c' && !b;": [
        "return a != 'c' && !b;", "return a == 'x' && !b;", "return a == 'c' || !b;",
        "return a == 'c' && b;", "return {};",
    ],
    "return true;": ["return false;"],
    "return std::nullopt;": [],
    "return f(a);": ["return {};"],
    "if (a) { return 1; }": [
        "if (!(a)) { return 1; }", "if (a) { ; }", "if (a) { return (1 + 1); }", "if (a) { return (1 - 1); }",
    ],
    "if (a == b || c) return;": [
        "if (!(a == b || c)) return;", "if (a != b || c) return;", "if (a == b && c) return;",
        "if (a == b || c) ;",
    ],
    "for (; a(); ++b) {}": ["for (; !(a()); ++b) {}", "for (; a(); --b) {}"],
    "while (a(b)) c();": ["while (!(a(b))) c();", "while (a(b)) ;"],
    "switch (a) { case B: b(); break; default: c(); }": [
        "switch (a) { case B: ; break; default: c(); }", "switch (a) { case B: b(); ; default: c(); }",
        "switch (a) { case B: b(); break; default: ; }",
    ],
    "a = [](int b) { b(); }; c();": [
        "; c();", "a = [](int b) { ; }; c();", "a = [](int b) { b(); }; ;",
    ],
    "Guard guard(a);": [";"],  # does what it does without being named again
    "Size size = a(); b(size);": ["Size size = a(); ;"],
    "a += -b & ~c;": ["a -= -b & ~c;", "a += b & ~c;", "a += -b | ~c;", "a += -b & c;", ";"],
    "out << \"a < 1\" << 'b';": [";", "out << \"a < 1\" << 'x';"],
    "// a < b\n/* return 1; */": [],
    "#define A 1 + \\\n 2\n": [],
}  # fmt: skip
OUTSIDE = {
    "#include <a>\ntemplate <int n> std::vector<A<B>>& f(const A* a, B&& b);": [],
    "class A { B b_; int c_ = 0; };": ["class A { B b_; int c_ = (0 + 1); };"],
    "namespace a { using b::c; constexpr int d = 0x1F; }": [
        "namespace a { using b::c; constexpr int d = (0x1F + 1); }",
        "namespace a { using b::c; constexpr int d = (0x1F - 1); }",
    ],
    "const char* a = R\"x(\" 1 + 2;)x\";": [],
}  # fmt: skip


class Mutators(unittest.TestCase):
    def expect(self, text, expected):
        changed = [mutant.apply(text) for mutant in mutators.mutants_of("a.cpp", text)]
        self.assertCountEqual(changed, expected, text)

    def test_changes_in_a_function(self):
        for text, expected in CHANGES.items():
            around = "int f() {{\n{}\n}}\n".format
            self.expect(around(text), [around(each) for each in expected])

    def test_changes_outside_of_functions(self):
        for text, expected in OUTSIDE.items():
            self.expect(text, expected)


if __name__ == "__main__":
    unittest.main()
