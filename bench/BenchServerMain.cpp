// Serves the benchmarks' loopback answers until SIGINT or SIGTERM; prints its base URL first.

#include "BenchSupport.hpp"

#include <csignal>
#include <iostream>
#include <pthread.h>

int main()
{
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr); // inherited by the server's threads
    fexo::bench::BenchServer server;
    std::cout << server.baseURL() << std::endl;
    int signal = 0;
    sigwait(&stop, &signal);
    std::cerr << "bench_server: " << server.requestsServed() << " requests served" << std::endl;
    return 0;
}
