// Minimal text streams for saving and restoring data objects: values are written as
// whitespace-separated tokens and read back in the same order.
#pragma once

#include <cstdio>

namespace vorx {

class D3_ostream {
  public:
    explicit D3_ostream(FILE* fp) : fp_(fp) {}
    D3_ostream& operator<<(int v);
    D3_ostream& operator<<(double v);
    D3_ostream& operator<<(const char* s);
    FILE* file() const { return fp_; }

  private:
    FILE* fp_;
};

class D3_istream {
  public:
    explicit D3_istream(FILE* fp) : fp_(fp) {}
    D3_istream& operator>>(int& v);
    D3_istream& operator>>(double& v);
    // Reads one whitespace-delimited word into buf (at most size-1 characters).
    D3_istream& read_word(char* buf, int size);
    bool good() const { return ok_; }
    FILE* file() const { return fp_; }

  private:
    FILE* fp_;
    bool ok_ = true;
};

}  // namespace vorx
