// A super-resolution network read from an ONNX file and executed on the CPU
// by the library's own engine. Internal to the library: the model wrappers
// build on it.
#ifndef VORLITH_SRC_MODEL_NETWORK_H_
#define VORLITH_SRC_MODEL_NETWORK_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vorlith::model {

struct Graph;

// Buffers of released outputs, for the next predictions to fill. Arrays may
// be released on any thread.
class OutputBuffers {
 public:
  std::vector<float> Take() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (free_.empty()) return {};
    std::vector<float> v = std::move(free_.back());
    free_.pop_back();
    return v;
  }
  void Give(std::vector<float> v) {
    std::lock_guard<std::mutex> lock(mutex_);
    // A host holds an output for a frame or two; more would only hoard memory.
    if (free_.size() < 2) free_.push_back(std::move(v));
  }

 private:
  std::mutex mutex_;
  std::vector<std::vector<float>> free_;
};

class Network {
 public:
  virtual ~Network() = default;

  const std::shared_ptr<OutputBuffers>& outputs() const { return outputs_; }

  // Reads and checks an ONNX file. Returns null and a one-line reason in
  // *error when the file cannot be read or parsed, or when it uses an
  // operator or attribute the runtime does not support (the message names
  // the operator, e.g. "unsupported operator Softmax (node 'sm1')").
  // `threads` is the number of bands a prediction is split into, run on the
  // process's worker pool (which grows to at least that many threads);
  // 1 runs a prediction on the caller's thread alone.
  static std::unique_ptr<Network> Load(const std::string& path, int threads, std::string* error) {
    return Load(path, threads, false, error);
  }
  // With `gpu`, an integer network runs on a Vulkan GPU where the build has
  // the GPU path and the machine a device (see vulkan_network.h); on the CPU
  // otherwise, with one error line logged when a named or present device
  // could not be used.
  static std::unique_ptr<Network> Load(const std::string& path, int threads, bool gpu, std::string* error);

  // The engine for a graph already imported (or built in code).
  static std::unique_ptr<Network> FromGraph(Graph graph, int threads);

  // How far, in input pixels, an output pixel's value may reach beyond the
  // input pixels under it (see InputMargin in onnx_graph.h): the overlap
  // that makes tiles of an input give the whole input's values.
  virtual int64_t InputMargin() const = 0;

  // Where predictions run: "CPU", or the GPU's name.
  virtual std::string DeviceName() const { return "CPU"; }

  // Names of the graph's single input and single output, as in the file.
  virtual const std::string& InputName() const = 0;
  virtual const std::string& OutputName() const = 0;

  // The output shape ([1, C, H', W']) the network gives for an input of
  // `input_shape` ([1, 1, H, W]), from the graph alone: nothing runs. Empty
  // when `input_shape` does not have four dimensions.
  virtual std::vector<int64_t> OutputShape(const std::vector<int64_t>& input_shape) const = 0;

  // The part of the output a run computes: its top `rows` rows and left
  // `columns` columns, 0 meaning all of that dimension (and more than the
  // output has, all of it). `on_rows`, if set, is called on the threads
  // that compute them each time rows [first, end) of `output` (the output
  // vector's data, every channel) are final, each row of the part once.
  struct Region {
    int64_t rows = 0, columns = 0;
    std::function<void(const float* output, int64_t first, int64_t end)> on_rows;
  };

  // Runs the network on a float32 NCHW input of shape `input_shape`
  // ([1, C, H, W]). Buffers are sized on the first call and again only
  // when the input shape or the region changes. On success fills `output`
  // and `output_shape` (NCHW) and returns true; otherwise returns false with
  // a reason in *error. Only the region's output values are computed, from
  // only the inputs they depend on, and they are the values a whole run
  // gives; the rest of `output` is left as it was (resized to the full
  // output). Safe to call from several threads: runs on one network object
  // take turns.
  virtual bool Run(const float* input, const std::vector<int64_t>& input_shape, const Region& region,
                   std::vector<float>* output, std::vector<int64_t>* output_shape, std::string* error) = 0;
  bool Run(const float* input, const std::vector<int64_t>& input_shape, std::vector<float>* output,
           std::vector<int64_t>* output_shape, std::string* error) {
    return Run(input, input_shape, Region(), output, output_shape, error);
  }

 private:
  std::shared_ptr<OutputBuffers> outputs_ = std::make_shared<OutputBuffers>();
};

}  // namespace vorlith::model

#endif  // VORLITH_SRC_MODEL_NETWORK_H_
