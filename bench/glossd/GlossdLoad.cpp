// Load generator for nubra-glossd, run as its own process: N client threads on keep-alive connections
// send lookups until `count` are done or `seconds` have passed, and report the client-side time to the
// first "delta" and to "done" (median and 99th percentile) and lookups per second. With SLOW > 0, as
// many slow clients, each from its own loopback address, keep sending the header lines of a request
// that never ends, one every 200 ms, and connect again as soon as the service cuts them.
#include <httplib.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double percentile(std::vector<double> values, double p) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, std::size_t(p * double(values.size())))];
}

// One slow client, from 127.0.0.(10 + index), until `stop`; `connected` counts its first connection.
void trickle(int port, int index, const std::atomic<bool>& stop, std::atomic<int>& connected) {
    const auto send = [](int fd, const std::string& text) {
        return ::send(fd, text.data(), text.size(), MSG_NOSIGNAL) == ssize_t(text.size());
    };
    bool counted = false;
    while (!stop) {
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = htonl((127u << 24) | std::uint32_t(10 + index));
        sockaddr_in server{};
        server.sin_family = AF_INET;
        server.sin_port = htons(std::uint16_t(port));
        server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) == 0 &&
            ::connect(fd, reinterpret_cast<sockaddr*>(&server), sizeof server) == 0 &&
            send(fd, "POST /v1/gloss HTTP/1.1\r\nHost: bench\r\n")) {
            if (!std::exchange(counted, true))
                ++connected;
            pollfd entry{fd, POLLIN, 0};
            while (!stop && ::poll(&entry, 1, 200) == 0 && send(fd, "X-Slow: 1\r\n"))
                continue;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
        ::close(fd);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 6 && argc != 7) {
        std::fprintf(stderr, "usage: bench_glossd_load PORT THREADS COUNT SECONDS WORD [SLOW]\n");
        return 2;
    }
    const int port = std::atoi(argv[1]);
    const int threads = std::max(1, std::atoi(argv[2]));
    const int count = std::max(1, std::atoi(argv[3]));
    const auto budget = std::chrono::seconds(std::max(1, std::atoi(argv[4])));
    const std::string body =
        std::string(R"({"selected_text":")") + argv[5] +
        R"(","context_before":"we sat on the river","context_after":"and watched the water",)"
        R"("style":"plain","length":"medium","lang":"en","model_tier":"fast","request_id":"B"})";

    const int slow = argc == 7 ? std::max(0, std::atoi(argv[6])) : 0;
    std::atomic<bool> stopSlow{false};
    std::atomic<int> slowConnected{0};
    std::vector<std::thread> slowClients;
    for (int i = 0; i < slow; ++i)
        slowClients.emplace_back(trickle, port, i, std::cref(stopSlow), std::ref(slowConnected));
    while (slowConnected < slow)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));

    std::atomic<int> started{0};
    std::atomic<int> failed{0};
    std::mutex mutex;
    std::vector<double> firstDelta;
    std::vector<double> done;
    const auto begin = Clock::now();
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&] {
            httplib::Client client("127.0.0.1", port);
            client.set_keep_alive(true);
            client.set_tcp_nodelay(true);
            client.set_read_timeout(std::chrono::seconds(30));
            while (started++ < count && Clock::now() - begin < budget) {
                const auto sent = Clock::now();
                double first = -1;
                std::string received;
                httplib::Request request;
                request.method = "POST";
                request.path = "/v1/gloss";
                request.body = body;
                request.headers = {{"Content-Type", "application/json"}};
                request.content_receiver = [&](const char* data, std::size_t size, std::uint64_t,
                                               std::uint64_t) {
                    received.append(data, size);
                    if (first < 0 && received.find("event: delta") != std::string::npos)
                        first = std::chrono::duration<double, std::milli>(Clock::now() - sent).count();
                    return true;
                };
                httplib::Response response;
                httplib::Error error = httplib::Error::Success;
                if (!client.send(request, response, error) ||
                    received.find("event: done") == std::string::npos) {
                    ++failed;
                    continue;
                }
                const double total = std::chrono::duration<double, std::milli>(Clock::now() - sent).count();
                std::lock_guard lock(mutex);
                firstDelta.push_back(first);
                done.push_back(total);
            }
        });
    for (auto& worker : workers)
        worker.join();
    const double elapsed = std::chrono::duration<double>(Clock::now() - begin).count();
    stopSlow = true;
    for (auto& client : slowClients)
        client.join();
    std::printf("lookups=%zu failed=%d seconds=%.2f per_second=%.0f first_delta_ms_median=%.3f "
                "first_delta_ms_p99=%.3f done_ms_median=%.3f done_ms_p99=%.3f\n",
                done.size(), failed.load(), elapsed, double(done.size()) / elapsed,
                percentile(firstDelta, 0.5), percentile(firstDelta, 0.99), percentile(done, 0.5),
                percentile(done, 0.99));
    return 0;
}
