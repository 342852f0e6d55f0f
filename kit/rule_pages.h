// The pages of the checker's rules, made from kit/rules/RULE.txt when the program is built. A page
// is shown by `product-kit check --rules RULE`, and it is a test case:
//
//     one paragraph: what the rule finds
//     more paragraphs: why it matters
//     with: FILE          followed by its lines, four blanks before each: part of both products
//                         ("-> PATH" makes a link)
//     wrong: FILE         the same, of the wrong product alone; "without: FILE" takes one away
//     right: FILE         the same, of the right one
//     found: FILE:LINE    where the finding stands in the wrong one; "also: FILE:LINE RULE" comes
//                         with it
//     as: root            only root can run it
//     run: COMMAND        what is run in the product's folder, once for each line
//     shows: COMMAND      succeeds after that in the wrong product and fails in the right one;
//                         $SCREEN is the file with what the runs have shown
//
// What a page does not give of the four files is there all the same: the name "Test", and an empty
// section [install].
#pragma once

struct RulePage {
    const char *word;
    const char *text;
};

// Ended by one without a word.
extern const RulePage rule_pages[];
