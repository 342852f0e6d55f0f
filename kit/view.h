// A private view of this machine: what is run in it sees all files and can change them, and the
// machine's own stay as they are. The view is a mount namespace with an overlay over every file
// system that can be written; it is made by root directly, by others in a user namespace in which
// they keep their own ids. It ends with the process that made it, however that ends: its processes
// are killed, and what they changed is gone.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <sys/types.h>

#include "lib.h"
#include "scratch.h"
#include "tree.h"

// What is done in the view, in a process of its own; the result is its exit status. The program
// that it runs has the terminal and the working directory of the caller.
using ViewStep = std::function<int()>;

class View {
  public:
    // Makes a view in which these steps can be taken. `scratch` is the directory that takes up what
    // is changed; null: memory does. Null, with one sentence in `reason`, where that cannot be.
    static std::unique_ptr<View> make(std::vector<ViewStep> steps, const char *scratch,
                                      std::string &reason);
    ~View();
    View(const View &) = delete;
    View &operator=(const View &) = delete;

    // Takes a step, as often as wanted: its exit status, 128 and the number of the signal that
    // ended it, or -1 when the view itself has ended or cannot take it.
    int take(size_t step);

    // Ends all that was run in the view. What was changed can still be looked at.
    void end();

    // The parts of the view with their changes; what in it is not as on the machine, a sentence
    // each; what the steps so far could not do although the machine allows it.
    const std::vector<Layer> &layers() const { return parts; }
    const std::vector<std::string> &said() const { return sentences; }
    const std::vector<std::string> &broken() const { return breaks; }

    // How overlays note down what they did.
    Notes notes() const { return kept_notes; }

  private:
    View() = default;
    bool start(std::vector<ViewStep> steps, const char *scratch, std::string &reason);
    bool receive_tree(std::string &reason);

    pid_t keeper = -1; // the first process of the view
    Descriptor channel;
    std::vector<Layer> parts;
    std::vector<std::string> sentences;
    std::vector<std::string> breaks;
    Notes kept_notes = Notes::none;
    Scratch scratch;
};
