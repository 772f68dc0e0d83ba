// Files whose names tell the registry nothing: scripts name their language in
// a "#!" line or an editor modeline.
#include "syntax/FileContentFormat.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/TestSupport.h"
#include "syntax/CodeFactory.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;

std::string hint(std::string_view head, std::string_view tail = {}) {
  auto found = FileContentFormat::fromText(head, tail.empty() ? head : tail);
  if (!found) return "(none)";
  return (found->fileName ? "name:" : "") + found->key + " by " + found->rule;
}

TEST(FileContentFormat, InterpreterLines) {
  EXPECT_EQ(hint("#!/bin/sh\necho hi\n"), "sh by interpreter");
  EXPECT_EQ(hint("#! /bin/bash -e\n"), "sh by interpreter");
  EXPECT_EQ(hint("#!/usr/bin/env zsh\n"), "sh by interpreter");
  EXPECT_EQ(hint("#!/usr/bin/python3.11\n"), "py by interpreter");
  EXPECT_EQ(hint("#!/usr/bin/env python3\n"), "py by interpreter");
  EXPECT_EQ(hint("#!/usr/bin/env -S perl -w\n"), "pl by interpreter");
  EXPECT_EQ(hint("#!/usr/bin/env LC_ALL=C ruby\n"), "rb by interpreter");
  EXPECT_EQ(hint("#!/usr/bin/php8.2\n<?php echo 1;\n"), "php by interpreter");
  EXPECT_EQ(hint("#!/usr/bin/env node\n"), "js by interpreter");
  EXPECT_EQ(hint("#!/usr/local/bin/tclsh8.6\n"), "tcl by interpreter");
  EXPECT_EQ(hint("\xEF\xBB\xBF#!/bin/sh\n"), "sh by interpreter");
  // No program, or one we have no colouring for.
  for (const char* head : {"#!\n", "#!/usr/bin/env\n", "#!/usr/bin/env -i\n", "#!/usr/bin/awk -f\n",
                           "# !/bin/sh\n", " #!/bin/sh\n", ""}) {
    EXPECT_EQ(hint(head), "(none)") << head;
  }
}

TEST(FileContentFormat, EmacsAndVimModelines) {
  EXPECT_EQ(hint("# -*- mode: python; coding: utf-8 -*-\n"), "py by emacs-mode");
  EXPECT_EQ(hint("/* -*- Mode: C++ -*- */\n"), "cpp by emacs-mode");
  EXPECT_EQ(hint("# -*- Perl -*-\n"), "pl by emacs-mode");
  EXPECT_EQ(hint("# -*- mode: makefile-gmake -*-\nall:\n"), "name:makefile by emacs-mode");
  // Second line only after an interpreter line that names nothing we colour.
  EXPECT_EQ(hint("#!/usr/bin/awk -f\n# -*- mode: sh -*-\n"), "sh by emacs-mode");
  EXPECT_EQ(hint("first\n# -*- mode: sh -*-\n"), "(none)");
  EXPECT_EQ(hint("# -*- coding: latin-1 -*-\n"), "(none)");

  EXPECT_EQ(hint("# vim: set ft=ruby :\n"), "rb by vim-modeline");
  EXPECT_EQ(hint("// vim: ts=4 sw=4 filetype=javascript\n"), "js by vim-modeline");
  EXPECT_EQ(hint("# vi:syntax=dosini\n"), "ini by vim-modeline");
  EXPECT_EQ(hint("x\n# ex: ft=cmake\n"), "name:cmakelists.txt by vim-modeline");
  // "index:" or "via:" are no markers; ft must be an option of the line.
  EXPECT_EQ(hint("see index: ft=python\nvia: ft=python\n"), "(none)");
  EXPECT_EQ(hint("# vim: set ts=2 :\n"), "(none)");
  // A modeline in the last lines of a long file.
  std::string head = "line\n";
  std::string tail = "...\n# vim: set ft=sh :\n";
  EXPECT_EQ(hint(head, tail), "sh by vim-modeline");
  std::string early = tail + "1\n2\n3\n4\n5\n6\n";
  EXPECT_EQ(hint(head, early), "(none)");  // more than five lines from the end
}

class ContentRule : public test::TempHome {
 protected:
  CodeFactory::FormatChoice choose(const std::string& name, const std::string& text) {
    const fs::path path = scratch.path() / name;
    test::writeFile(path, text);
    const std::string ext = path.extension().string();
    return CodeFactory::chooseFormat(ext.empty() ? "" : ext.substr(1), "", path.string());
  }
  test::ScratchDir scratch;
};

TEST_F(ContentRule, OnlyWhenTheNameGivesNothing) {
  auto script = choose("deploy", "#!/usr/bin/env python3\nprint(1)\n");
  EXPECT_EQ(script.rule, "interpreter");
  ASSERT_TRUE(script.row);
  EXPECT_EQ(script.row->cls, "PythonFormatParser");
  auto parser = CodeFactory::codeFormatParser((scratch.path() / "deploy").string());
  EXPECT_EQ(parser->className(), "PythonFormatParser");

  // The name decides first: an extension, a built-in file name.
  EXPECT_EQ(choose("tool.rb", "#!/bin/sh\n").rule, "extension");
  EXPECT_EQ(choose("tool.rb", "#!/bin/sh\n").row->cls, "RubyFormatParser");
  EXPECT_EQ(choose("Makefile", "#!/usr/bin/make -f\n").rule, "file-name");
  // An unknown extension does not stop the first line from deciding.
  EXPECT_EQ(choose("run.cgi", "#!/usr/bin/perl -T\n").row->cls, "PerlFormatParser");
  EXPECT_EQ(choose("rules", "#!/usr/bin/make -f\n").row->stxFilePath, "makefile.stx");

  auto plain = choose("README", "Nothing to see.\n");
  EXPECT_EQ(plain.rule, "none");
  EXPECT_FALSE(plain.row);
  EXPECT_EQ(CodeFactory::chooseFormat("", "", (scratch.path() / "missing").string()).rule, "none");

  // Too large for colouring, whatever the first line says.
  std::string big = "#!/bin/sh\n";
  big.resize(kHighlightCutOff + 1, '#');
  EXPECT_EQ(choose("huge", big).rule, "too-large");
}

TEST_F(ContentRule, ScriptsInstalledOnThisMachine) {
  struct Script {
    const char* path;
    const char* cls;
  };
  int seen = 0;
  for (const Script& s : {Script{"/usr/bin/gzexe", "ShellFormatParser"},
                          Script{"/usr/bin/zgrep", "ShellFormatParser"},
                          Script{"/usr/bin/corelist", "PerlFormatParser"},
                          Script{"/usr/bin/pydoc3", "PythonFormatParser"}}) {
    std::error_code ec;
    if (!fs::is_regular_file(s.path, ec)) continue;
    ++seen;
    auto choice = CodeFactory::chooseFormat("", "", s.path);
    EXPECT_EQ(choice.rule, "interpreter") << s.path;
    ASSERT_TRUE(choice.row) << s.path;
    EXPECT_EQ(choice.row->cls, s.cls) << s.path;
  }
  if (seen == 0) GTEST_SKIP() << "none of the scripts is installed";
}

}  // namespace
}  // namespace harbor
