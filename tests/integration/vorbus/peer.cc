// The other process of the tests: attaches to the bus, obeys commands on its standard input, tells on its standard
// output what happens. Ends at the end of its input.
//
//   vorbus_peer DIRECTORY NAME SEND_TIMEOUT_MS       NAME "-" for none
//
//   subscribe NAME            tells "found NAME PID", "lost NAME"
//   unsubscribe NAME
//   send PID NUMBER COUNT SIZE   numbered messages; tells "sent RESULT COUNT"
//   stream PID NUMBER COUNT SIZE   the same, numbered on from the last send or stream
//   publish NUMBER COUNT SIZE    tells "published RESULT COUNT"
//   count NUMBER              checks the numbered signals of that number
//   count-events NUMBER       checks the numbered events of that number
//   uncount-events NUMBER
//   report NUMBER             tells "received NEXT WRONG" of the signals of that number
//   report-events NUMBER
//   tell NUMBER               tells "signal NUMBER SENDER SIZE" for each signal
//   tell-events NUMBER        tells "event NUMBER SIZE" for each event
//   echo NUMBER REPLY         sends each signal back to its sender as another one
//   pause, resume             stops and goes on with dispatching
//   (these from "count" on, but the reports, are answered "ok")
//   close                     detaches, tells "closed", ends
#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "attachment.h"

namespace vorbus_test {
namespace {

template <typename... Words>
void Tell(const Words&... words) {
  std::ostringstream line;
  const char* space = "";
  ((line << space << words, space = " "), ...);
  std::cout << line.str() << std::endl;
}

class Peer {
 public:
  Peer(const std::string& directory, const std::string& name, unsigned int timeout_ms)
      : bus_(std::make_unique<Attachment>(directory, name == "-" ? nullptr : name.c_str(), timeout_ms)) {
    Tell("pid", bus_->pid());
  }

  int Run() {
    std::string input;
    while (bus_) {
      pollfd sources[2] = {{STDIN_FILENO, POLLIN, 0}, {is_paused_ ? -1 : vorbus_fd(bus_->token()), POLLIN, 0}};
      if (poll(sources, 2, -1) < 0) {
        continue;
      }
      if (sources[1].revents != 0) {
        const int rc = vorbus_dispatch(bus_->token());
        if (rc < 0) {
          Tell("dispatch", rc);
        }
      }
      if (sources[0].revents != 0 && !ReadCommands(input)) {
        break;
      }
    }
    return 0;
  }

 private:
  bool ReadCommands(std::string& input) {
    char buffer[4096];
    const ssize_t length = read(STDIN_FILENO, buffer, sizeof buffer);
    if (length <= 0) {
      return false;
    }
    input.append(buffer, static_cast<std::size_t>(length));
    for (std::size_t end = input.find('\n'); bus_ && end != std::string::npos; end = input.find('\n')) {
      Obey(input.substr(0, end));
      input.erase(0, end + 1);
    }
    return true;
  }

  void Obey(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    words >> command;
    if (command == "subscribe" || command == "unsubscribe") {
      std::string name;
      words >> name;
      command == "subscribe" ? Subscribe(name) : vorbus_proc_unsubscribe(&presences_.at(name)->subscription);
    } else if (command == "pause" || command == "resume") {
      is_paused_ = command == "pause";
      Tell("ok");
    } else if (command == "close") {
      bus_.reset();
      Tell("closed");
    } else if (command == "send" || command == "stream") {
      vorbus_pid_t to = 0;
      words >> to;
      Send(to, words, command == "stream");
    } else {
      unsigned int number = 0;
      words >> number;
      ObeyFor(number, command, words);
    }
  }

  void ObeyFor(unsigned int number, const std::string& command, std::istringstream& words) {
    if (command == "publish") {
      Publish(number, words);
    } else if (command == "report") {
      Tell("received", signals_[number].next, signals_[number].wrong);
    } else if (command == "report-events") {
      Tell("received", events_[number].next, events_[number].wrong);
    } else {
      Register(number, command, words);
      Tell("ok");
    }
  }

  void Register(unsigned int number, const std::string& command, std::istringstream& words) {
    if (command == "tell") {
      bus_->OnSignal(number, [number](vorbus_pid_t sender, const void*, std::size_t size) {
        Tell("signal", number, sender, size);
      });
    } else if (command == "tell-events") {
      registrations_[number] =
          bus_->OnEvent(number, [number](const void*, std::size_t size) { Tell("event", number, size); });
    } else if (command == "echo") {
      unsigned int reply = 0;
      words >> reply;
      bus_->OnSignal(number, [this, reply](vorbus_pid_t sender, const void* data, std::size_t size) {
        bus_->Send(sender, reply, {static_cast<const char*>(data), size});
      });
    } else if (command == "count") {
      bus_->OnSignal(number, [this, number](vorbus_pid_t, const void* data, std::size_t size) {
        signals_[number].Add(data, size);
      });
    } else if (command == "count-events") {
      registrations_[number] = bus_->OnEvent(
          number, [this, number](const void* data, std::size_t size) { events_[number].Add(data, size); });
    } else if (command == "uncount-events") {
      vorbus_event_deregister(&registrations_[number]);
    } else {
      Tell("unknown", command);
    }
  }

  void Subscribe(const std::string& name) {
    Attachment::Presence& presence = bus_->Subscribe(name);
    presences_[name] = &presence;
    presence.on_change = [name, &presence] {
      presence.is_there ? Tell("found", name, presence.pid()) : Tell("lost", name);
    };
  }

  void Send(vorbus_pid_t to, std::istringstream& words, bool goes_on) {
    unsigned int number = 0;
    std::uint32_t count = 0;
    std::size_t size = 0;
    words >> number >> count >> size;
    next_ = goes_on ? next_ : 0;
    int rc = 0;
    std::uint32_t sent = 0;
    for (; sent < count && rc == 0; sent += rc == 0 ? 1 : 0) {
      rc = bus_->Send(to, number, size != 0 ? Numbered(next_, size) : std::string());
      next_ += rc == 0 ? 1 : 0;
    }
    Tell("sent", rc, sent);
  }

  void Publish(unsigned int number, std::istringstream& words) {
    std::uint32_t count = 0;
    std::size_t size = 0;
    words >> count >> size;
    int rc = 0;
    std::uint32_t published = 0;
    for (; published < count && rc >= 0; ++published) {
      rc = bus_->Publish(number, size != 0 ? Numbered(published, size) : std::string());
    }
    Tell("published", rc, published);
  }

  std::unique_ptr<Attachment> bus_;
  bool is_paused_ = false;
  std::uint32_t next_ = 0;
  std::map<std::string, Attachment::Presence*> presences_;
  std::map<unsigned int, vorbus_eventreg_t*> registrations_;
  std::map<unsigned int, Stream> signals_;
  std::map<unsigned int, Stream> events_;
};

}  // namespace
}  // namespace vorbus_test

int main(int argc, char** argv) {
  if (argc != 4) {
    return 2;
  }
  try {
    vorbus_test::Peer peer(argv[1], argv[2], static_cast<unsigned int>(std::atoi(argv[3])));
    return peer.Run();
  } catch (const std::exception& error) {
    std::cout << "failed " << error.what() << std::endl;
    return 1;
  }
}
