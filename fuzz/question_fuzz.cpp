// The question file: answers, one a line, and then the file, whose questions take them in turn.
#include <sstream>

#include "fuzz.h"
#include "quest.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, size_t size)
{
    std::string_view input(reinterpret_cast<const char *>(bytes), size);
    reset_modules(size);
    std::istringstream answers(take_piece(input));
    write_file("x.q", input);
    const Owned<Ini, ini_free> ini(ini_init());
    const Owned<questions, quest_free> set(quest_init(ini.get()));
    quest_load(set.get(), "x.q", "install");
    std::string line;
    for (std::uint32_t index = 0; index < quest_count(set.get()); index++) {
        require(quest_text(set.get(), index) && quest_setting(set.get(), index), "it is complete");
        char answer[line_size] = "";
        quest_default(set.get(), index, answer, line_size);
        if (std::getline(answers, line))
            scpy(answer, line.c_str());
        if (!quest_answer(set.get(), index, answer))
            require(*quest_error(), "a refused answer has a reason");
        quest_default(set.get(), index, answer, 3);
    }
    return 0;
}
