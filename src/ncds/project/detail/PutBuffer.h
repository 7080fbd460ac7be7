#ifndef NCDS_PROJECT_DETAIL_PUTBUFFER_H
#define NCDS_PROJECT_DETAIL_PUTBUFFER_H

// The base of output stream buffers that do all their writing in `xsputn`: a single character
// that does not fit the put area goes through `xsputn` too.

#include <streambuf>

namespace ncds::detail {

class PutBuffer : public std::streambuf {
 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const char byte = traits_type::to_char_type(c);
    return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
  }
};

}  // namespace ncds::detail

#endif  // NCDS_PROJECT_DETAIL_PUTBUFFER_H
