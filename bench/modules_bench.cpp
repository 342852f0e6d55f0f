// What the modules' inner operations cost: run by scripts/bench, never by the tests.

#include <string>

#include <benchmark/benchmark.h>

#include "copy.h"
#include "ini.h"
#include "lib.h"
#include "log.h"

namespace {

using Store = Owned<Ini, ini_free>;

// A store of `count` settings, name0 to name<count - 1>.
Store make_store(int count)
{
    Store store(ini_init());
    for (int index = 0; index < count; index++) {
        const std::string name = "name" + std::to_string(index);
        ini_add_name(store.get(), name.c_str(), "/opt/product/value");
    }
    return store;
}

void wildcard(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(wild_match("some-picture-of-a-page.html", "*pic*.html"));
}
BENCHMARK(wildcard);

void exclusion_list(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(wild_list("index.html", "*.bak, *~ core .git* *.orig"));
}
BENCHMARK(exclusion_list);

void formatter(benchmark::State &state)
{
    char text[line_size];
    for (auto _ : state)
        benchmark::DoNotOptimize(
            lprintf(text, line_size, "Copy line '%s' is [%d]", "destination", 257));
}
BENCHMARK(formatter);

void log_one_line(benchmark::State &state)
{
    const Owned<Log, log_free> log(log_init(LogDebug));
    log_open(log.get(), "/dev/null");
    log_doflush(log.get(), 1);
    log_set(log.get());
    for (auto _ : state)
        imsg("Copy line '%s' is [%s]", "source", "/opt/product/pages");
    log_set(nullptr);
}
BENCHMARK(log_one_line);

void store_look_up(benchmark::State &state)
{
    const Store store = make_store(static_cast<int>(state.range(0)));
    const std::string last = "name" + std::to_string(state.range(0) - 1);
    for (auto _ : state)
        benchmark::DoNotOptimize(ini_value_name(store.get(), last.c_str()));
}
BENCHMARK(store_look_up)->Arg(10)->Arg(100)->Arg(5000);

// The setting keeps one value, so that the work stays the same.
void store_add(benchmark::State &state)
{
    const Store store(ini_init());
    ini_rmvmode(store.get(), Ini_NewMulti);
    for (auto _ : state)
        benchmark::DoNotOptimize(ini_add_name(store.get(), "port", "8080"));
}
BENCHMARK(store_add);

void reference_filling(benchmark::State &state)
{
    const Store store = make_store(20);
    const Owned<copy, copy_free> script(copy_init(store.get()));
    for (auto _ : state) {
        const Text filled(replace_vars(script.get(), "Path = $(name3)/$(name17)/cgi-bin"));
        benchmark::DoNotOptimize(filled.get());
    }
}
BENCHMARK(reference_filling);

} // namespace
