#include "kelvaroctl/app.h"

int main(int argc, char** argv)
{
    return kelvaroctl::RunTool(std::vector<std::string>(argv + 1, argv + argc));
}
