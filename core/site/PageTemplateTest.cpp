#include "core/site/PageTemplate.hpp"

#include <gtest/gtest.h>

#include "core/base/Files.hpp"
#include "core/site/PageTemplateError.hpp"
#include "core/site/PageTemplateReview.hpp"

using namespace vorlen;

namespace {

PageTemplateError failureOf(std::string bytes) {
    try {
        PageTemplate::inspected(std::move(bytes)).requireComplete();
    } catch (const PageTemplateError& error) {
        return error;
    }
    ADD_FAILURE() << "the template passed";
    return PageTemplateError::notText();
}

// A page of exactly `size` bytes that holds the two required placeholders.
std::string pageOfSize(std::size_t size) {
    std::string page = "{{head}}{{player}}";
    page.resize(size, 'x');
    return page;
}

}  // namespace

TEST(PageTemplateTest, TheLimitIsInclusiveAndTheMessageGivesBothSizes) {
    EXPECT_NO_THROW(PageTemplate::inspected(pageOfSize(262144)).requireComplete());
    auto error = failureOf(pageOfSize(262145));
    ASSERT_TRUE(std::holds_alternative<PageTemplateError::TooLarge>(error.failureCase()));
    EXPECT_EQ(std::get<PageTemplateError::TooLarge>(error.failureCase()).size, 262145);
    EXPECT_STREQ(error.what(), "The file has 262.1 kB. A page template can have 262.1 kB at most.");
    // Size comes first: a large file is refused before its bytes are read as text.
    EXPECT_TRUE(std::holds_alternative<PageTemplateError::TooLarge>(failureOf(std::string(300000, '\xFF')).failureCase()));

    // A file is measured before it is read: a video picked by mistake gives its own size.
    const fs::path folder = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-page-");
    DirectoryRemover remover(folder);
    writeFileAtomically(folder / "clip.mp4", "");
    fs::resize_file(folder / "clip.mp4", 2'500'000'000);
    try {
        PageTemplate::inspectedFile(folder / "clip.mp4");
        ADD_FAILURE() << "a video passed as a template";
    } catch (const PageTemplateError& error) {
        EXPECT_STREQ(error.what(), "The file has 2.50 GB. A page template can have 262.1 kB at most.");
    }
}

TEST(PageTemplateTest, OnlyHeadAndPlayerAreRequired) {
    auto page = PageTemplate::inspected("{{head}}{{player}}");
    EXPECT_EQ(page.text, "{{head}}{{player}}");
    EXPECT_TRUE(page.missingPlaceholders.empty());
    EXPECT_TRUE(page.unknownPlaceholders.empty());

    auto error = failureOf("<title>{{title}}</title>{{description}}");
    ASSERT_TRUE(std::holds_alternative<PageTemplateError::Incomplete>(error.failureCase()));
    EXPECT_EQ(std::get<PageTemplateError::Incomplete>(error.failureCase()).missing,
              (std::vector{PagePlaceholder::head, PagePlaceholder::player}));
    EXPECT_STREQ(error.what(), "The template does not contain {{head}} and {{player}}. A page cannot play its video without them.");
    EXPECT_EQ(PageTemplateReview::missingText({PagePlaceholder::player}),
              "The file does not contain {{player}}. A page cannot play its video without them.");
}

TEST(PageTemplateTest, SpacedOrMistypedPlaceholdersAreUnknownOnceEachAndExtraBracesAreSkipped) {
    auto page = PageTemplate::inspected(
        "{{{head}}} <h1>{{ title }}</h1> {{ title }} {{Player}} {{player}} {{site}} {{}} {{unclosed");
    EXPECT_TRUE(page.missingPlaceholders.empty()) << "{{{head}}} holds {{head}}";
    EXPECT_EQ(page.unknownPlaceholders, (std::vector<std::string>{" title ", "Player", ""}));
    EXPECT_EQ(PageTemplateReview::shownAsWritten(" title "), "{{ title }}");

    auto spaced = PageTemplate::inspected("{{head}} {{ player }}");
    EXPECT_EQ(spaced.missingPlaceholders, std::vector{PagePlaceholder::player});
    EXPECT_THROW(spaced.requireComplete(), PageTemplateError);
}

TEST(PageTemplateTest, BytesThatAreNotUtf8AreRefusedAsNoText) {
    for (std::string bytes : {"{{head}}{{player}}\xC3(", "{{head}}{{player}}\xED\xA0\x80", "\xFF\xFE<\x00p\x00>\x00"}) {
        auto error = failureOf(bytes);
        EXPECT_TRUE(std::holds_alternative<PageTemplateError::NotText>(error.failureCase()));
        EXPECT_STREQ(error.what(), "The file is not UTF-8 text. Save the template as UTF-8 text, then try again.");
    }
}

TEST(PageTemplateTest, TheReviewNamesEveryPlaceholder) {
    EXPECT_EQ(PageTemplateReview::placeholderRule(),
              "The placeholders are {{title}}, {{head}}, {{player}}, {{description}}, {{site}} and {{visibility}}, "
              "with no spaces.");
}
