// Buffer, bucket and dymarray: sequences of operations against standard containers.
#include <algorithm>
#include <vector>

#include "core/bucket.h"
#include "core/buffer.h"
#include "core/dymarray.h"
#include "fuzz/input.h"

static void fuzz_buffer(Input* input) {
  Buffer buffer(input->byte());
  std::string written;
  size_t consumed = 0;
  while (!input->empty()) {
    const std::string text = input->text(input->byte() % 64);
    switch (input->byte() % 4) {
      case 0:
        buffer.append(text.data(), text.size());
        written += text;
        break;
      case 1:
        if (written.size() < 4096) {
          buffer.append(buffer);
          written += written;
        }
        break;
      case 2: {
        const size_t n = std::min(text.size(), written.size() - consumed);
        buffer.consume(n);
        consumed += n;
        break;
      }
      case 3:
        buffer.release();
        buffer.consumed = consumed = 0;
        written.clear();
        break;
    }
    REQUIRE(buffer.size == written.size() && buffer.size <= buffer.capacity + 0);
    REQUIRE(buffer.length() == written.size() - consumed);
    REQUIRE(std::string(buffer.get_unmanaged_array(), buffer.length()) == written.substr(consumed));
  }
}

static void fuzz_bucket(Input* input) {
  bucket_t bucket;
  bucket_nil(&bucket);
  std::string model;
  while (!input->empty()) {
    const std::string text = input->c_text(input->byte() % 100);
    const long long number = static_cast<long long>(text.size() * 7919) - input->byte() * 31;
    switch (input->byte() % 6) {
      case 0:
        bucket_append(&bucket, text.c_str());
        model += text;
        break;
      case 1:
        bucket_push(&bucket, 'p');
        model += 'p';
        break;
      case 2:
        bucket_appendv(&bucket, text.c_str(), "-", text.c_str(), nullptr);
        model += text + "-" + text;
        break;
      case 3:
        bucket_append_int(&bucket, number);
        model += std::to_string(number);
        break;
      case 4:
        bucket_cstring(&bucket);
        bucket_drop(&bucket, text.size());
        model.resize(model.size() - std::min(model.size(), text.size()));
        break;
      case 5:
        bucket_release(&bucket);
        model.clear();
        break;
    }
    REQUIRE(bucket.length == model.size() && bucket.length <= bucket.capacity);
    REQUIRE(bucket_cstring(&bucket) == model && bucket.length < bucket.capacity);
  }
  bucket_release(&bucket);
}

static int compare_bytes(const void* a, const void* b) {
  return *static_cast<const uint8_t*>(a) - *static_cast<const uint8_t*>(b);
}

static void fuzz_array(Input* input) {
  dymarray_t array;
  dymarray_init(&array, 1, input->byte() % 5);
  std::vector<uint8_t> model;
  while (!input->empty()) {
    const uint8_t value = input->byte();
    const size_t index = model.empty() ? 0 : value % model.size();
    switch (input->byte() % 5) {
      case 0:
        *static_cast<uint8_t*>(dymarray_alloc(&array)) = value;
        model.push_back(value);
        break;
      case 1:
        REQUIRE(dymarray_pop_back(&array) == (model.empty() ? 0 : model.size() - 1));
        model.resize(model.size() - !model.empty());
        break;
      case 2:
        dymarray_rewind(&array, value);
        model.resize(std::min<size_t>(model.size(), value));
        break;
      case 3:
        if (!model.empty()) {
          dymarray_swap(&array, index, 0);
          std::swap(model[index], model[0]);
        }
        break;
      case 4:
        dymarray_sort(&array, compare_bytes);
        std::sort(model.begin(), model.end());
        break;
    }
    REQUIRE(std::equal(model.begin(), model.end(),
                       static_cast<const uint8_t*>(dymarray_cbegin(&array)),
                       static_cast<const uint8_t*>(dymarray_cend(&array))));
  }
  dymarray_destroy(&array);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  void (*const targets[])(Input*) = {fuzz_buffer, fuzz_bucket, fuzz_array};
  targets[input.byte() % 3](&input);
  return 0;
}
