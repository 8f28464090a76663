/* packet: link-layer frames of one interface, received or sent. */
#include <cerrno>
#include <cstring>
#include <net/if.h>

#include "channel.h"
#include "frames.h"
#include "pace.h"

const char packet_rule[] = "  Packets: --count or --idle; with --send-only the end of the input.\n";

namespace
{

const size_t frame_limit = 64 << 10; /* more than any interface takes */
const double packet_rate = 4 << 20;
const double nap = 0.001; /* until a full queue of the interface is tried again */

class Frames : public Channel
{
  public:
    explicit Frames(const Options &given) : Channel(given), pace{given.rate != 0 ? given.rate : packet_rate}
    {
        receiving = !given.send_only;
    }

    int open() override
    {
        /* Asked first: for an interface that does not exist the module closes a descriptor twice. */
        if (if_nametoindex(options.interface.c_str()) == 0) {
            return refuse("open", "there is no such interface; `ip link` lists them");
        }
        /* Protocol 0 receives nothing. */
        sockfd = kel_raw_server_socket_create((SHORT)(receiving ? options.protocol : 0), options.interface.c_str());
        if (sockfd == KEL_ERROR) {
            return errno == EPERM ? refuse("open", "it needs the raw-socket privilege (CAP_NET_RAW)") : cannot("open");
        }
        interface = own_address()[0];
        if (receiving) {
            incoming.reset(new char[frame_limit]);
            ask_for_receive_buffer(4 << 20);
            show_listening({interface});
        }
        return 0;
    }

    size_t send(const char *bytes, size_t size) override
    {
        size_t used = 0;
        while (settle() && used < size) {
            used += options.raw ? take_raw(bytes, size) : reader.take(bytes + used, size - used, &frame);
        }
        return used;
    }

    void finish() override
    {
        whole = whole || options.raw;
        if (settle()) {
            reader.finish(&frame);
            sending = !frame.empty() || !reader.error().empty();
        }
    }

    size_t receive(char *buffer, size_t room) override
    {
        size_t got = 0;
        while (receiving && room - got >= largest) {
            kel_sockaddr_t from = {};
            const LONG length = kel_recvfrom(sockfd, incoming.get(), frame_limit, MSG_DONTWAIT, &from);
            if (length == KEL_ERROR) {
                receiving = errno == EAGAIN;
                if (!receiving) {
                    broke(errno);
                }
                break;
            }
            const bool outgoing = from.raw.sll_pkttype == PACKET_OUTGOING;
            if (outgoing && (options.raw || !options.verbose)) {
                continue;
            }
            receiving = ++received != options.count;
            if (options.raw) {
                memcpy(buffer + got, incoming.get(), (size_t)length);
                got += (size_t)length;
            } else {
                got += frame_text(buffer + got, received, incoming.get(), (size_t)length, outgoing,
                                  ntohs(from.raw.sll_protocol));
            }
        }
        return got;
    }

  private:
    size_t take_raw(const char *bytes, size_t size)
    {
        frame.append(bytes, size);
        if (frame.size() > frame_limit) {
            fail("standard input is longer than any frame: with --raw all of it is one frame");
            sending = false;
        }
        return size;
    }

    /* Sends the frame that is complete, and then tells what is wrong behind it. False: not now, or nothing more. */
    bool settle()
    {
        const bool complete = !frame.empty() && (!options.raw || whole);
        if (complete && !send_frame()) {
            return false;
        }
        if (!reader.error().empty()) {
            fail("%s", reader.error().c_str());
            sending = false;
        }
        return sending;
    }

    /* True: it has gone, or never will. */
    bool send_frame()
    {
        const double now = now_seconds();
        not_before = pace.due(now);
        if (not_before > now) {
            return false;
        }
        if (kel_sendto(sockfd, frame.data(), frame.size(), MSG_DONTWAIT, &interface) == KEL_ERROR) {
            if (errno == EAGAIN || errno == ENOBUFS) {
                not_before = now + nap;
                return false;
            }
            fail("cannot send %zu bytes to %s: %s", frame.size(), options.endpoint.c_str(), strerror(errno));
            sending = false;
        }
        pace.sent(frame.size(), now);
        frame.clear();
        return true;
    }

    Pace pace;
    FrameReader reader;
    std::string frame;             /* the next one, once it is complete; with --raw the input so far */
    bool whole = false;            /* with --raw: it is complete */
    kel_sockaddr_t interface = {}; /* where frames go: filled once */
    unsigned long received = 0;
    std::unique_ptr<char[]> incoming;
};

} // namespace

std::unique_ptr<Channel> make_packet(const Options &options)
{
    return std::make_unique<Frames>(options);
}
