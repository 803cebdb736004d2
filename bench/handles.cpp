// The handles and threads that a process has after many signatures but not after the first few.
#include <cstdlib>
#include <iostream>

#include "bench/module.h"
#include "bench/vault.h"
#include "tests/common/leftovers.h"

namespace {

nlohmann::json Count()
{
    const Holdings held = TakeStock();
    return {{"handles", held.handles}, {"threads", held.threads}};
}

}  // namespace

int main(int count, char** arguments)
{
    const int signatures = count > 1 ? atoi(arguments[1]) : 10000;
    bench::Vault vault;
    bench::Module module;
    bench::Module::Key key(module, TEXT("p256"), false);
    for (int i = 0; i < 20; ++i)
        key.Sign();
    const nlohmann::json before = Count();
    for (int i = 0; i < signatures; ++i)
        key.Sign();
    std::cout << nlohmann::json{{"signatures", signatures}, {"before", before}, {"after", Count()}} << '\n';
}
