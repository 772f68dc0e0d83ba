// Declarations a text makes about its own encoding, as real files write them.
#include "encoding/CharsetDeclaration.h"

#include <gtest/gtest.h>

#include "encoding/EncodingUtil.h"

namespace harbor {
namespace {

using CD = CharsetDeclaration;

std::string declared(std::string_view text) {
  auto encoding = CD::declaredEncoding(text);
  return encoding ? EncodingUtil::encodingForStringEncoding(*encoding) : "(none)";
}

TEST(CharsetDeclaration, PagesStyleSheetsAndXml) {
  EXPECT_EQ(declared("<!DOCTYPE html><html><head><meta charset=\"koi8-r\"><title>"), "KOI8-R");
  EXPECT_EQ(declared("<html><head><META CHARSET=windows-1251></head>"), "windows-1251");
  EXPECT_EQ(declared("<head><meta charset='iso-8859-2'/>"), "ISO-8859-2");
  // http-equiv in either attribute order, the charset inside content.
  EXPECT_EQ(declared("<meta http-equiv=\"Content-Type\" content=\"text/html; charset=cp1250\">"),
            "windows-1250");
  EXPECT_EQ(declared("<meta content='text/html;charset=Shift_JIS' http-equiv='content-type'>"),
            "Shift_JIS");
  // content with a charset but no http-equiv is no declaration.
  EXPECT_EQ(declared("<meta name=\"x\" content=\"charset=koi8-r\"><p>"), "(none)");
  // A tag in a comment, or a word that only starts like meta, says nothing.
  EXPECT_EQ(declared("<!-- <meta charset=koi8-r> --><metadata charset=koi8-r>"), "(none)");
  EXPECT_EQ(declared("<?xml version=\"1.0\" encoding=\"ISO-8859-7\"?>\n<doc/>"), "ISO-8859-7");
  EXPECT_EQ(declared("<?xml version='1.0' encoding='EUC-JP'?><a/>"), "EUC-JP");
  EXPECT_EQ(declared("@charset \"windows-1253\";\nbody{}"), "windows-1253");
  EXPECT_EQ(declared("\xEF\xBB\xBF@charset \"ibm866\";"), "IBM866");
  EXPECT_EQ(declared("body{}\n@charset \"koi8-r\";"), "(none)");  // must open the sheet

  // A page's <meta> outranks its XML declaration, as in browsers.
  EXPECT_EQ(declared("<?xml version=\"1.0\" encoding=\"iso-8859-1\"?>\n<html><head>"
                     "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=koi8-r\">"),
            "KOI8-R");
  // Pages cannot declare themselves into UTF-16; US-ASCII pages are windows-1252.
  EXPECT_EQ(declared("<meta charset=\"utf-16\">"), "UTF-8");
  EXPECT_EQ(declared("<meta charset=\"us-ascii\">"), "windows-1252");
}

TEST(CharsetDeclaration, CodingCookiesInTheFirstTwoLines) {
  EXPECT_EQ(declared("# -*- coding: latin-1 -*-\nprint('x')\n"), "ISO-8859-1");
  EXPECT_EQ(declared("#!/usr/bin/python\n# -*- coding: koi8-r -*-\n"), "KOI8-R");
  EXPECT_EQ(declared("# vim: set fileencoding=cp1251 :\n"), "windows-1251");
  EXPECT_EQ(declared("/* vim: set fenc=iso-8859-5: */\n"), "ISO-8859-5");
  // Emacs names and line-end suffixes, among other variables.
  EXPECT_EQ(declared(";; -*- mode: lisp; coding: cyrillic-koi8-unix -*-\n"), "KOI8-R");
  EXPECT_EQ(declared(".\\\" -*- coding: utf-8 -*-\n.TH LS 1\n"), "UTF-8");
  EXPECT_EQ(declared("% -*- coding: iso-latin-2-dos -*-\n"), "ISO-8859-2");
  // Third line: too late.
  EXPECT_EQ(declared("one\ntwo\n# -*- coding: koi8-r -*-\n"), "(none)");
  // A word in prose is no label and hides nothing after it.
  EXPECT_EQ(declared("Decoding: the basics\n<meta charset=\"koi8-r\">"), "KOI8-R");
  EXPECT_EQ(declared("# coding: no-such-charset\n"), "(none)");
}

TEST(CharsetDeclaration, LabelsResolveThroughAliases) {
  EXPECT_EQ(EncodingUtil::encodingForStringEncoding(CD::resolve(" \"CP866\" ")), "IBM866");
  EXPECT_EQ(EncodingUtil::encodingForStringEncoding(CD::resolve("MAC-CYRILLIC")), "x-mac-cyrillic");
  EXPECT_EQ(EncodingUtil::encodingForStringEncoding(CD::resolve("TIS-620")), "windows-874");
  EXPECT_EQ(EncodingUtil::encodingForStringEncoding(CD::resolve("UHC")), "cp949");
  EXPECT_EQ(CD::resolve(""), kInvalidStringEncoding);
  EXPECT_EQ(CD::resolve(std::string(200, 'a')), kInvalidStringEncoding);
}

TEST(CharsetDeclaration, MalformedHeadsEndQuietly) {
  for (std::string_view text :
       {std::string_view("<meta"), std::string_view("<meta charset=\"koi8"),
        std::string_view("<meta http-equiv=content-type content='text/html; charset="),
        std::string_view("<!-- never closed <meta charset=koi8-r>"), std::string_view("<?xml "),
        std::string_view("<?xml encoding"), std::string_view("@charset \""),
        std::string_view("-*- coding:"), std::string_view("<\0meta charset=koi8-r>", 22),
        std::string_view("")}) {
    EXPECT_FALSE(CD::declaredEncoding(text)) << text;
  }
  // Past the head nothing is read.
  std::string late(CD::kHeadSize, ' ');
  late += "<meta charset=koi8-r>";
  EXPECT_FALSE(CD::find(late));
}

}  // namespace
}  // namespace harbor
