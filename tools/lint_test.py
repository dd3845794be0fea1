#!/usr/bin/env python3
"""Each lint against small trees that keep its rule and small trees that break it."""
import contextlib
import io
import shutil
import tempfile
import unittest
from pathlib import Path

import lint
import lint_exported_classes
import lint_exports
import lint_format
import lint_self_contained
import lint_tidy
import test_summary
import tree


class Tree(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)

    def put(self, path, text=""):
        target = self.root / path
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(text)
        return target


class Layers(Tree):
    def faults(self, path, include):
        self.put(path, f"#pragma once\n#include {include}\n")
        return lint.layers(self.root)

    def test_an_include_that_points_down_is_fine(self):
        self.assertEqual(self.faults("agent/a.h", '"tarn/b.h"'), [])

    def test_an_include_of_the_own_floor_is_fine(self):
        self.assertEqual(self.faults("corvel/a.h", '"corvel/b.h"'), [])

    def test_an_include_that_points_up_is_a_fault(self):
        self.assertEqual(len(self.faults("mirrowen/util/a.h", '"tarn/b.h"')), 1)

    def test_a_test_may_not_look_up_either(self):
        self.assertEqual(len(self.faults("tarn/a_test.cpp", '"agent/b.h"')), 1)

    def test_floors_side_by_side_are_strangers(self):
        self.assertEqual(len(self.faults("corvel/a.h", '"brannock/b.h"')), 1)
        self.assertEqual(len(self.faults("brannock/a.h", '"corvel/b.h"')), 2)

    def test_linuxacl_gets_the_export_macro_of_its_library_and_no_more(self):
        self.assertEqual(self.faults("linuxacl/a.h", '"tarn/export.h"'), [])
        self.assertEqual(len(self.faults("linuxacl/a.h", '"tarn/b.h"')), 1)

    def test_only_tests_include_the_test_helpers(self):
        self.assertEqual(self.faults("tarn/a_test.cpp", '"tests/support/b.h"'), [])
        self.assertEqual(len(self.faults("tarn/a.cpp", '"tests/support/b.h"')), 1)

    def test_an_include_that_is_not_from_the_root_is_a_fault(self):
        self.assertEqual(len(self.faults("tarn/a.cpp", '"b.h"')), 1)

    def test_our_header_in_angle_brackets_is_a_fault(self):
        self.assertEqual(len(self.faults("tarn/a.cpp", "<mirrowen/b.h>")), 1)

    def test_heavy_headers_stay_in_sources(self):
        for heavy in ("<CLI/CLI.hpp>", "<nlohmann/json.hpp>", "<spdlog/spdlog.h>", "<boost/xpressive/xpressive.hpp>"):
            self.assertEqual(len(self.faults("tarn/a.h", heavy)), 1, heavy)
        self.put("tarn/a.h")
        self.assertEqual(self.faults("tarn/a.cpp", "<spdlog/spdlog.h>"), [])


class Sizes(Tree):
    def test_over_the_budget_is_a_warning_and_over_twice_the_budget_a_fault(self):
        path = self.put("tarn/a.h", "//\n" * lint.HEADER_LINES)
        self.assertEqual(lint.sizes(self.root), [])
        path.write_text("//\n" * (lint.HEADER_LINES + 1))
        self.assertTrue(lint.sizes(self.root)[0].startswith("warning: "))
        path.write_text("//\n" * (2 * lint.HEADER_LINES + 1))
        self.assertTrue(lint.sizes(self.root)[0].startswith("tarn/a.h"))

    def test_a_source_may_be_longer_than_a_header(self):
        self.put("tarn/a.cpp", "//\n" * lint.SOURCE_LINES)
        self.assertEqual(lint.sizes(self.root), [])


class Headers(Tree):
    def test_comments_may_stand_before_pragma_once(self):
        self.put("tarn/a.h", "// What it is.\n\n#pragma once\n")
        self.assertEqual(lint.headers(self.root), [])

    def test_a_header_without_pragma_once_is_a_fault(self):
        self.put("tarn/a.h", "#include <string>\n#pragma once\n")
        self.assertEqual(len(lint.headers(self.root)), 1)

    def test_a_source_includes_its_own_header_first(self):
        self.put("tarn/a.h", "#pragma once\n")
        self.put("tarn/a.cpp", '#include "tarn/a.h"\n#include <string>\n')
        self.assertEqual(lint.headers(self.root), [])
        self.put("tarn/a.cpp", '#include <string>\n#include "tarn/a.h"\n')
        self.assertEqual(len(lint.headers(self.root)), 1)


class Todos(Tree):
    def test_a_reason_is_asked_for(self):
        note = "TO" + "DO"
        self.put("tarn/a.cpp", f"// {note}: drop with the old kernel\n// {note}(ann): drop with the old kernel\n")
        self.assertEqual(lint.todos(self.root), [])
        self.put("tarn/a.cpp", f"// {note}\n// {note}: later\n")
        self.assertEqual(len(lint.todos(self.root)), 2)


class Listed(Tree):
    def test_a_source_is_listed_in_its_folder_or_above(self):
        self.put("tarn/CMakeLists.txt", "tarn_room(t FLOOR tarn SOURCES a.cpp sub/b.cpp)\n# c.cpp\n")
        for name in ("a.cpp", "sub/b.cpp"):
            self.put(f"tarn/{name}")
        self.assertEqual(lint.listed(self.root), [])

    def test_an_unlisted_test_is_a_fault_even_when_a_comment_names_it(self):
        self.put("tarn/CMakeLists.txt", "# c_test.cpp\n")
        self.put("tarn/c_test.cpp")
        self.assertEqual(len(lint.listed(self.root)), 1)


class Main(Tree):
    def test_a_fault_fails_and_a_warning_does_not(self):
        self.put("tarn/a.h", "#pragma once\n" + "//\n" * lint.HEADER_LINES)
        with contextlib.redirect_stdout(io.StringIO()) as output:
            self.assertEqual(lint.main(self.root), 0)
            self.assertIn("warning", output.getvalue())
            self.put("tarn/a.h", "")
            self.assertEqual(lint.main(self.root), 1)


class SelfContained(Tree):
    def test_only_headers_without_a_source_need_the_compiler(self):
        self.put("tarn/a.h")
        self.put("tarn/a.cpp")
        self.put("tarn/b.h")
        self.assertEqual(lint_self_contained.lone_headers(self.root), [Path("tarn/b.h")])

    def test_a_header_that_needs_another_before_it_is_a_fault(self):
        self.put("tarn/good.h", "#pragma once\n#include <string>\ninline std::string a() { return {}; }\n")
        self.put("tarn/bad.h", "#pragma once\ninline std::string b() { return {}; }\n")
        self.assertIsNone(lint_self_contained.compile_alone(self.root, Path("tarn/good.h")))
        self.assertIn("string", lint_self_contained.compile_alone(self.root, Path("tarn/bad.h")))


class Tidy(Tree):
    def test_sources_of_the_product_below_the_paths_are_looked_at(self):
        for name in ("tarn/a.cpp", "tarn/a_test.cpp", "tarn/b/c.cpp", "tarn/d.h", "cli/e.cpp", "tests/f.cpp"):
            self.put(name)
        every = [Path("cli/e.cpp"), Path("tarn/a.cpp"), Path("tarn/b/c.cpp")]
        self.assertEqual(lint_tidy.product_sources(self.root), every)
        self.assertEqual(lint_tidy.product_sources(self.root, ["tarn/b/", "cli/e.cpp"]), [every[0], every[2]])
        self.assertEqual(lint_tidy.product_sources(self.root, ["tar"]), [])

    def test_headers_of_the_tree_are_taken_from_what_ninja_noted(self):
        build = self.root / "build/release"
        build.mkdir(parents=True)
        listing = ("a.o: #deps 3\n    ../../tarn/a.cpp\n    ../../tarn/a.h\n    /usr/include/b.h\n\n"
                   "c.o: #deps 1\n    ../../tarn/c.cpp\n")
        self.assertEqual(lint_tidy.inclusions(self.root, build, listing),
                         {Path("tarn/a.cpp"): [Path("tarn/a.cpp"), Path("tarn/a.h")],
                          Path("tarn/c.cpp"): [Path("tarn/c.cpp")]})

    def test_a_changed_header_command_or_configuration_asks_for_another_look(self):
        self.put(".clang-tidy", "Checks: a\n")
        header = self.put("tarn/a.h", "int a;\n")
        keys = [lint_tidy.key(self.root, command, [Path("tarn/a.h")]) for command in ("g++", "g++ -O2")]
        header.write_text("int b;\n")
        keys.append(lint_tidy.key(self.root, "g++", [Path("tarn/a.h")]))
        self.put(".clang-tidy", "Checks: b\n")
        keys.append(lint_tidy.key(self.root, "g++", [Path("tarn/a.h")]))
        self.assertEqual(len(set(keys)), 4)
        self.assertEqual(keys[3], lint_tidy.key(self.root, "g++", [Path("tarn/a.h")]))


@unittest.skipUnless(shutil.which(lint_format.CLANG_FORMAT), "needs " + lint_format.CLANG_FORMAT)
class Format(Tree):
    def test_every_file_that_would_change_is_named_once(self):
        self.put(".clang-format", "BasedOnStyle: Google\n")
        self.put("tarn/a.cpp", "int  a ;\nint  b ;\n")
        self.put("tarn/b.cpp", "int b;\n")
        self.put("tests/c.h", "int  c ;\n")
        self.assertEqual(lint_format.unformatted(self.root), ["tarn/a.cpp", "tests/c.h"])

    def test_a_tree_without_sources_is_formatted(self):
        self.assertEqual(lint_format.unformatted(self.root), [])


class Exports(unittest.TestCase):
    def test_own_names_and_weak_strangers_are_fine(self):
        table = ("00001 T tarn::CPath::CPath()\n00002 V typeinfo for tarn::CPath\n"
                 "00003 W std::vector<int>::push_back(int const&)\n00004 W fmt::detail::thing()\n")
        self.assertEqual(lint_exports.strangers(table, ("tarn",)), [])

    def test_a_strong_name_of_somebody_else_is_a_fault(self):
        table = "00001 T tarn::CPath::CPath()\n00002 T LZ4_compress\n00003 B exc::state\n"
        self.assertEqual(lint_exports.strangers(table, ("tarn",)), ["LZ4_compress", "exc::state"])

    def test_a_class_outside_of_any_namespace_can_be_an_owner(self):
        table = "00001 T CCorvelCtx::Inst()\n00002 D vtable for CCorvelCtx\n00003 T CCorvelCtxOther::Inst()\n"
        self.assertEqual(lint_exports.strangers(table, ("CCorvelCtx",)), ["CCorvelCtxOther::Inst()"])

    def test_a_return_type_and_a_prefix_do_not_hide_the_name(self):
        table = "00001 D vtable for tarn::A\n00002 D guard variable for util::x\n00003 T non-virtual thunk to tarn::A::~A()\n"
        self.assertEqual(lint_exports.strangers(table, ("tarn",)), ["util::x"])


class ExportedClasses(Tree):
    def faults(self, header, table="", source="", internal=()):
        self.put("tarn/a.h", header)
        self.put("tarn/a.cpp", source)
        return lint_exported_classes.faults(self.root, table, "TARN_API", ["tarn"], internal)

    def test_a_marked_class_that_the_library_shows_is_fine(self):
        self.assertEqual(self.faults("class TARN_API CPath : public IPath {\n", "00001 T tarn::CPath::CPath()\n"), [])
        self.assertEqual(self.faults("class TARN_API IPath {\n", "00001 V typeinfo for tarn::IPath\n"), [])

    def test_a_marked_class_that_the_library_does_not_show_is_a_fault(self):
        self.assertEqual(len(self.faults("class TARN_API CPath {\n", "00001 T tarn::CPathList::Add()\n")), 1)

    def test_a_nested_class_is_looked_for_by_its_own_name(self):
        self.assertEqual(len(self.faults("class TARN_API a_t::b_t : public c_t::b_t {\n", "00001 T x::a_t::f()\n")), 1)

    def test_a_class_without_the_macro_may_have_no_members_in_a_source(self):
        self.assertEqual(self.faults("struct entry_t {\n  int a;\n};\nclass later_t;\n"), [])
        self.assertEqual(len(self.faults("class walk_t {\n", source="void walk_t::Run() {}\n")), 1)
        self.assertEqual(self.faults("class walk_t {\n", source="void walk_t::Run() {}\n", internal=("walk_t",)), [])


class Summary(Tree):
    def counted(self, cases):
        path = self.put("tests.xml", f"<testsuite>{cases}</testsuite>")
        return test_summary.count(path)

    def test_each_kind_is_counted(self):
        counted = self.counted('<testcase name="a" status="run"/><testcase name="b" status="fail"><failure/></testcase>'
                               '<testcase name="c" status="notrun"><skipped message="SKIP_RETURN_CODE=77"/></testcase>')
        self.assertEqual(counted, (["a"], ["b"], ["c"]))
        self.assertEqual(test_summary.summary(*counted), "1 passed, 1 failed, 1 skipped")

    def test_a_test_whose_program_is_missing_failed(self):
        counted = self.counted('<testcase name="a" status="notrun"><skipped message="Unable to find executable"/>'
                               '</testcase><testcase name="b" status="disabled"/>')
        self.assertEqual(counted, ([], ["a"], ["b"]))

    def test_without_skipped_tests_the_line_does_not_mention_them(self):
        self.assertEqual(test_summary.summary(["a"], [], []), "1 passed, 0 failed")

    def run_main(self, cases, status):
        self.counted(cases)
        self.put("out", "")
        with contextlib.redirect_stdout(io.StringIO()) as output:
            code = test_summary.main(self.root / "tests.xml", self.root / "out", status)
        return code, output.getvalue().splitlines()[-1]

    def test_a_run_without_tests_fails(self):
        self.assertEqual(self.run_main("", 0), (1, "0 passed, 0 failed"))

    def test_a_failed_test_fails_the_run(self):
        self.assertEqual(self.run_main('<testcase name="a" status="fail"/>', 0), (1, "0 passed, 1 failed"))

    def test_a_failure_of_ctest_fails_the_run(self):
        self.assertEqual(self.run_main('<testcase name="a" status="run"/>', 8), (1, "1 passed, 0 failed"))

    def test_a_good_run_is_good(self):
        self.assertEqual(self.run_main('<testcase name="a" status="run"/>', 0), (0, "1 passed, 0 failed"))


class Files(Tree):
    def test_other_folders_are_left_alone(self):
        self.put("tarn/a.h")
        self.put("build/release/b.cpp")
        self.assertEqual(tree.sources(self.root), [Path("tarn/a.h")])


if __name__ == "__main__":
    unittest.main()
