/** @file
 * Tests that every function of the interfaces to the board and to the sensor library is documented.
 */
#include "documented_functions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "repository.h"

namespace structure_tests
{

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

constexpr bool with_comment = true;
constexpr bool without_comment = false;

/** The functions in the headers of a folder. */
std::vector<declaration_t> functions_of(const std::string &folder)
{
    std::vector<declaration_t> functions;
    for (const std::filesystem::path &header : headers_of(folder))
    {
        const std::vector<declaration_t> of_header = declared_functions(text_of(header));
        functions.insert(functions.end(), of_header.begin(), of_header.end());
    }
    return functions;
}

/** The names of the functions in the headers of a folder that have no comment. */
std::vector<std::string> undocumented_functions(const std::string &folder)
{
    std::vector<std::string> names;
    for (const declaration_t &function : functions_of(folder))
    {
        if (!function.is_documented)
        {
            names.push_back(function.name);
        }
    }
    return names;
}

} // namespace

TEST(documented_functions, include_all_of_the_board_interface)
{
    EXPECT_GE(functions_of("integration").size(), 10U);
    EXPECT_THAT(undocumented_functions("integration"), IsEmpty());
}

TEST(documented_functions, include_all_of_the_sensor_library)
{
    EXPECT_GE(functions_of("nox").size(), 51U);
    EXPECT_THAT(undocumented_functions("nox"), IsEmpty());
}

TEST(documented_functions, have_their_own_comment)
{
    EXPECT_THAT(
        declared_functions("/** Does. */\nvoid a(int b);\nvoid c(void);\n\n/** Returns. */\nint *d();"),
        ElementsAre(declaration_t{"a", with_comment}, declaration_t{"c", without_comment},
                    declaration_t{"d", with_comment}));
}

TEST(documented_functions, include_types_and_definitions)
{
    EXPECT_THAT(declared_functions("typedef bool a(void);\n"
                                   "/** Does. */\nstatic inline int b(int c)\n{\n    return d(c);\n}\n"
                                   "int e(int f, ...) MACRO(1, 2);"),
                ElementsAre(declaration_t{"a", without_comment}, declaration_t{"b", with_comment},
                            declaration_t{"e", without_comment}));
}

TEST(documented_functions, do_not_use_the_comment_of_anything_else)
{
    for (const char *before : {"/** @file\n * Says. */\n", "/** A number. */\n#define NUMBER \\\n 1\n",
                               "/** @name Group\n@{ */\n", "/** @} */", "/* Says. */\n", "// Says.\n",
                               "/**/\n", "/** A number. */\nextern int b;\n", "int b; /**< says */\n",
                               "/** A record. */\ntypedef struct\n{\n    int c; /**< says */\n    /** Says. "
                               "*/\n    int d;\n} e;\n",
                               "/** Says. */\nextern \"C\" {\n", "/** Says. */\n#ifdef B\n"})
    {
        EXPECT_THAT(declared_functions(std::string(before) + "void a(void);\n}"),
                    ElementsAre(declaration_t{"a", without_comment}))
            << before;
    }
}

TEST(documented_functions, keep_their_comment_next_to_other_comments)
{
    for (const char *before : {"/** Does. */\n// Says.\n", "#include <b.h>\n/** Does\n * much. */\n\n",
                               "extern \"C\" {\n#endif\n/** Does. */\n", "/** @} */\n/** Does. */\n",
                               "/** A type. */\ntypedef int b;\n/** Does. */\n"})
    {
        EXPECT_THAT(declared_functions(std::string(before) + "void a(void);\n"),
                    ElementsAre(declaration_t{"a", with_comment}))
            << before;
    }
}

TEST(documented_functions, do_not_include_members_macros_assertions_or_text_in_comments)
{
    EXPECT_THAT(declared_functions(
                    "#define A(b) c(b)\n/** Calls d(). */\ntypedef struct\n{\n    void (*e)(int f);\n} g;\n"
                    "static_assert(sizeof(g) == 4);\n_Static_assert(1, \"\");\nH_ENUM(i){\n    j = 1,\n};\n"),
                IsEmpty());
}

} // namespace structure_tests
