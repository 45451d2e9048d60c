/** @file
 * Tests of the page as part of the program.
 */
#include "view/page_files.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <regex>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "view/view_answers.h"

namespace vantor
{
namespace
{

namespace fs = std::filesystem;

std::string text_of(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** The files of the page in the source tree, by their paths on the server. */
std::map<std::string, std::string> source_files()
{
    std::map<std::string, std::string> files;
    for (const auto &entry : fs::directory_iterator(VANTOR_PAGE))
    {
        const fs::path &path = entry.path();
        static const std::set<std::string> served{".html", ".js", ".css", ".svg"};
        if (served.contains(path.extension()))
        {
            const std::string name = path.filename().string();
            files["/" + (name == "index.html" ? "" : name)] = text_of(path);
        }
    }
    return files;
}

/** What a module is imported from, and what it exports. */
std::multiset<std::string> interface_of(const std::string &module)
{
    static const std::regex part(R"rx(\bfrom\s*["']([^"']+)["']|\bexport (?:class|const|function) (\w+))rx");
    std::multiset<std::string> names;
    for (auto match = std::sregex_iterator(module.begin(), module.end(), part);
         match != std::sregex_iterator(); ++match)
    {
        names.insert((*match)[1].str() + (*match)[2].str());
    }
    return names;
}

/** Every address with a scheme, or of another host with the present scheme. */
std::set<std::string> addresses_in(std::string_view text)
{
    static const std::regex address(R"rx((?:\b(?:https?|wss?|ftp):|["'(=]\s*)//[^\s"'`)<>]+)rx",
                                    std::regex::icase);
    std::set<std::string> found;
    for (auto match = std::cregex_iterator(text.begin(), text.end(), address);
         match != std::cregex_iterator(); ++match)
    {
        found.insert(match->str());
    }
    return found;
}

} // namespace

TEST(page_files, are_those_of_the_source_tree_and_the_library_for_charts)
{
    std::map<std::string, std::string> embedded;
    for (const page_file &file : page_files())
    {
        EXPECT_TRUE(embedded.emplace(file.path, file.text).second) << file.path;
    }
    EXPECT_THAT(embedded["/uplot.js"], ::testing::HasSubstr("(v1.6.32)"));
    embedded.erase("/uplot.js");
    auto source = source_files();
    EXPECT_GT(embedded.size(), 20U);
    for (auto *files : {&embedded, &source})
    {
        std::erase_if(*files, [](const auto &file) { return file.first.ends_with(".js"); });
    }
    EXPECT_EQ(embedded, source);
}

TEST(page_files, of_modules_are_smaller_and_have_the_same_interface)
{
    size_t modules = 0;
    for (const auto &[path, text] : source_files())
    {
        if (path.ends_with(".js"))
        {
            const std::string embedded(page_answer(path).text);
            EXPECT_LT(embedded.size(), text.size()) << path;
            EXPECT_THAT(embedded, ::testing::Not(::testing::HasSubstr("/**"))) << path;
            EXPECT_EQ(interface_of(embedded), interface_of(text)) << path;
            ++modules;
        }
    }
    EXPECT_GT(modules, 20U);
}

TEST(page_files, weigh_at_most_150_kilobytes)
{
    const auto files = page_files();
    const size_t bytes =
        std::accumulate(files.begin(), files.end(), size_t{0},
                        [](size_t sum, const page_file &file) { return sum + file.text.size(); });
    EXPECT_LE(bytes, 150000U);
}

TEST(page_files, name_no_address_outside)
{
    // The name of a namespace, and the comment with the origin of the library.
    const std::map<std::string_view, std::set<std::string>> allowed{
        {"/icon.svg", {"http://www.w3.org/2000/svg"}},
        {"/uplot.js", {"https://github.com/leeoniya/uPlot"}},
    };
    for (const page_file &file : page_files())
    {
        const auto exception = allowed.find(file.path);
        EXPECT_EQ(addresses_in(file.text),
                  exception == allowed.end() ? std::set<std::string>{} : exception->second)
            << file.path;
    }
}

TEST(page_files, search_for_addresses_finds_each_kind)
{
    EXPECT_EQ(addresses_in("a 'HTTPS://b.c/d' (//e.f) wss://g src=\"//h\"\t// comment 5\t//i"),
              (std::set<std::string>{"HTTPS://b.c/d", "(//e.f", "wss://g", "\"//h"}));
}

TEST(page_answer, is_the_file_that_the_target_names)
{
    const auto page = page_answer("/?token=1");
    EXPECT_EQ(page.status, 200U);
    EXPECT_EQ(page.content_type, "text/html; charset=utf-8");
    EXPECT_THAT(page.text, ::testing::StartsWith("<!doctype html>"));
    EXPECT_EQ(page_answer("/main.js").content_type, "text/javascript; charset=utf-8");
    EXPECT_EQ(page_answer("/uplot.js").content_type, "text/javascript; charset=utf-8");
    EXPECT_EQ(page_answer("/style.css?1").content_type, "text/css; charset=utf-8");
    EXPECT_EQ(page_answer("/icon.svg").content_type, "image/svg+xml");
}

TEST(page_answer, is_the_page_of_all_boards_if_there_are_several)
{
    EXPECT_EQ(page_answer("/?token=1", 2).text, page_answer("/boards.html").text);
    EXPECT_THAT(page_answer("/?token=1", 2).text, ::testing::HasSubstr("boards.js"));
    EXPECT_EQ(page_answer("/?token=1&board=2", 2).text, page_answer("/?token=1").text);
    EXPECT_EQ(page_answer("/main.js", 2).text, page_answer("/main.js").text);
}

TEST(board_in, is_the_number_of_a_board_in_a_target)
{
    EXPECT_EQ(board_in("/stream?token=1"), std::nullopt);
    EXPECT_EQ(board_in("/stream?token=1&board=12"), 12U);
    EXPECT_EQ(board_in("/?board=3&board=4"), 3U);
    for (const char *wrong : {"", "-1", "x", "1x", " 1", "99999999999999999999999"})
    {
        EXPECT_EQ(board_in(std::string("/?board=") + wrong), 0U) << wrong;
    }
}

TEST(page_answer, refuses_other_targets)
{
    for (const char *target :
         {"", "*", "//", "/index.html", "/main.js/", "/MAIN.JS", "main.js", "/../main.js", "/package.json",
          "/types.d.ts", "http://127.0.0.1/", "/%6dain.js"})
    {
        EXPECT_EQ(page_answer(target).status, 404U) << target;
    }
}

TEST(page_files, need_only_what_the_pages_ask_for)
{
    const auto page = std::string(page_answer("/").text) + std::string(page_answer("/boards.html").text);
    static const std::regex reference(R"rx((?:src|href)="([^"]+)")rx");
    size_t references = 0;
    for (auto match = std::sregex_iterator(page.begin(), page.end(), reference);
         match != std::sregex_iterator(); ++match)
    {
        EXPECT_EQ(page_answer((*match)[1].str()).status, 200U) << (*match)[1].str();
        ++references;
    }
    EXPECT_EQ(references, 7U);
}

TEST(page_files, have_no_inline_code_or_style)
{
    const auto page = std::string(page_answer("/").text) + std::string(page_answer("/boards.html").text);
    EXPECT_FALSE(
        std::regex_search(page, std::regex(R"rx(<script(?![^>]*\ssrc=)|<style|\sstyle=|\son\w+=)rx")));
}

} // namespace vantor
