#pragma once

#include <thread>
#include <vector>

// Runs work(number) on that many threads at once, with numbers from 0, and waits for them.
template <class Work>
void OnThreads(int count, const Work& work)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; i++)
        threads.emplace_back(work, i);
    for (std::thread& thread : threads)
        thread.join();
}
