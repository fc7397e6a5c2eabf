#ifndef STOP_H
#define STOP_H

// Lets what is under way come to a good end instead of being cut off: from Catch to the end of this
// object, SIGINT and SIGTERM are only noted. The second one of a kind ends the program as ever. One
// at a time.
class TStop {
public:
    TStop();
    TStop(const TStop&) = delete;
    TStop& operator=(const TStop&) = delete;
    ~TStop();

    void Catch();

    // Ends Wait as a signal does; from any thread.
    void Wake();
    // Returns once for each signal and each Wake.
    void Wait();

    // The signal that came; 0 while there was none.
    int Signal() const;
};

#endif
