// Buffer, bucket and dymarray: sequences of operations against standard containers, and the rules
// by which each grows.
#include <array>
#include <climits>
#include <cstring>
#include <vector>

#include "core/bucket.h"
#include "core/buffer.h"
#include "core/dymarray.h"
#include "fuzz/input.h"

static void fuzz_buffer(Input* input) {
  size_t capacity = input->byte(), consumed = 0;
  Buffer buffer(capacity);
  std::string model;
  while (!input->empty()) {
    const int operation = input->byte() % 4;
    const std::string text = operation < 2 ? "" : input->text(input->byte() % 64);
    if (operation == 0) {
      buffer.release();
      REQUIRE(buffer.array == nullptr);
      buffer.consumed = consumed = capacity = 0;
      model.clear();
    } else if (operation == 1 && model.size() < 4096) {
      buffer.append(buffer);
      model += model;
    } else if (operation == 2) {
      consumed += std::min(text.size(), model.size() - consumed);
      buffer.consume(consumed - buffer.consumed);
    } else {
      buffer.append(text.data(), text.size());
      model += text;
    }
    capacity = operation % 2 == 1 && capacity == 0 ? 8 : capacity;
    while (capacity < model.size()) capacity *= 2;
    REQUIRE(buffer.size == model.size() && buffer.capacity == capacity);
    REQUIRE(std::string(buffer.get_unmanaged_array(), buffer.length()) == model.substr(consumed));
  }
}

static void fuzz_bucket(Input* input) {
  bucket_t bucket{};
  std::string model;
  size_t capacity = 0;
  const auto put = [&](const std::string& text) {
    model += text;
    capacity = std::max<size_t>(capacity, 64);
    capacity = model.size() >= capacity ? model.size() + 64 : capacity;
  };
  while (!input->empty()) {
    const int operation = input->byte() % 6;
    const std::string text = input->c_text(input->byte() % 100);
    const std::string own = model.substr(model.size() - std::min(model.size(), text.size()));
    if (operation == 0) {
      bucket_push(bucket_append(&bucket, nullptr), 'p');
      put("p");
    } else if (operation == 1) {
      bucket_appendv(&bucket, text.c_str(), "-", nullptr, "never");
      put(text);
      put("-");
    } else if (operation == 2) {
      long long number = LLONG_MIN;
      memcpy(&number, text.data(), std::min(text.size(), sizeof number));
      bucket_append_int(&bucket, number);
      const bool odd = number == LLONG_MIN;
      for (const char c : odd ? "--922337203685477580(" : std::to_string(number)) put({c});
    } else if (operation == 3) {
      bucket_cstring(&bucket);  // which reserves the first bytes
      put("");
      bucket_drop(&bucket, text.size());
      model.resize(model.size() - own.size());
    } else if (operation == 4) {
      bucket_append(&bucket, bucket_cstring(&bucket) + model.size() - own.size());
      put(own);
    } else {
      bucket_release(&bucket);
      model.clear();
      capacity = 0;
    }
    REQUIRE(bucket.length == model.size() && bucket.capacity == capacity);
    REQUIRE(capacity == 0 ? bucket.data == nullptr : bucket_cstring(&bucket) == model);
  }
  bucket_release(&bucket);
}

using Element = std::array<uint8_t, 5>;

static int compare_elements(const void* a, const void* b) {
  return memcmp(a, b, sizeof(Element));
}

static void fuzz_array(Input* input) {
  dymarray_t array;
  const size_t step = dymarray_init(&array, sizeof(Element), input->byte() % 5);
  std::vector<Element> model;
  size_t capacity = 0;
  while (!input->empty()) {
    const int operation = input->byte() % 6;
    const uint8_t value = input->byte();
    if (operation == 0) {
      auto* const element = static_cast<Element*>(dymarray_alloc(&array));
      REQUIRE(*element == Element{} && element == dymarray_last(&array));
      REQUIRE(dymarray_indexof(&array, element) == model.size());
      *element = {value, static_cast<uint8_t>(model.size()), 'e', 'n', 'd'};
      capacity += model.size() == capacity ? step : 0;
      model.push_back(*element);
    } else if (operation == 1) {
      model.resize(model.size() - !model.empty());
      REQUIRE(dymarray_pop_back(&array) == model.size());
    } else if (operation == 2) {
      dymarray_rewind(&array, value);
      model.resize(std::min<size_t>(model.size(), value));
    } else if (operation == 3 && !model.empty()) {
      dymarray_swap(&array, value % model.size(), model.size() / 2);
      std::swap(model[value % model.size()], model[model.size() / 2]);
    } else if (operation == 4) {
      dymarray_sort(&array, compare_elements);
      std::sort(model.begin(), model.end());
    } else if (operation == 5 && value < 64) {
      dymarray_destroy(&array);
      model.clear();
      capacity = 0;
    }
    REQUIRE(dymarray_size(&array) == model.size() && step != 0);
    REQUIRE(dymarray_overhead(&array) == capacity - model.size());
    REQUIRE((dymarray_clast(&array) == nullptr) == model.empty());
    const void* element = dymarray_cbegin(&array);
    for (const Element& expected : model) {
      REQUIRE(*static_cast<const Element*>(element) == expected);
      element = dymarray_cnext(&array, element);
    }
    REQUIRE(element == dymarray_cend(&array));
  }
  dymarray_destroy(&array);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  void (*const targets[])(Input*) = {fuzz_buffer, fuzz_bucket, fuzz_array};
  targets[input.byte() % 3](&input);
  return 0;
}
