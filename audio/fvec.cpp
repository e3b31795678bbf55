#include <kelp/timewarp.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

namespace {
const char kFvecName[] = "Fvec";
} // namespace

Fvec::Fvec() : _array(nullptr), _data(nullptr), _size(0), _name(kFvecName) {}

Fvec::Fvec(unsigned n) : Fvec() {
    alloc(n);
}

Fvec::Fvec(const Fvec& other) : Fvec() {
    if (allocRaw(other._size) && other._size)
        std::memcpy(_data, other._data, other._size * sizeof(float));
    _name = other._name;
}

Fvec& Fvec::operator=(const Fvec& other) {
    if (this != &other && other._size == _size && _size)
        std::memmove(_data, other._data, _size * sizeof(float));
    return *this;
}

Fvec::~Fvec() {
    release();
}

void Fvec::release() {
    delete[] _array;
    _array = nullptr;
    _data = nullptr;
    _size = 0;
}

float* Fvec::allocRaw(unsigned n) {
    release();
    if (n == 0) return nullptr;
    _array = new (std::nothrow) float[n];
    if (!_array) return nullptr;
    _data = _array;
    _size = n;
    return _data;
}

void Fvec::alloc(unsigned n) {
    alloc(0.0f, n);
}

void Fvec::alloc(float value, unsigned n) {
    if (allocRaw(n)) std::fill(_data, _data + _size, value);
}

void Fvec::fill(float value) {
    std::fill(_data, _data + _size, value);
}

void Fvec::fill(unsigned first, unsigned last, float value) {
    last = std::min(last, _size);
    for (unsigned i = first; i < last; ++i)
        _data[i] = value;
}

void Fvec::rescale(float offset, float divisor, float add, float factor) {
    for (unsigned i = 0; i < _size; ++i) {
        float x = (_data[i] - offset) / divisor;
        x = x * factor;
        _data[i] = x + add;
    }
}

void Fvec::square() {
    for (unsigned i = 0; i < _size; ++i)
        _data[i] = _data[i] * _data[i];
}

void Fvec::abs() {
    for (unsigned i = 0; i < _size; ++i)
        _data[i] = std::fabs(_data[i]);
}

void Fvec::sqrt() {
    for (unsigned i = 0; i < _size; ++i)
        _data[i] = std::sqrt(_data[i]);
}

void Fvec::toDecibel() {
    const float floor = 1e-5f;
    for (unsigned i = 0; i < _size; ++i) {
        float x = _data[i];
        if (std::fabs(x) < floor) x = x < 0.0f ? -floor : floor;
        _data[i] = 20.0f * std::log10(x);
    }
}

float Fvec::mean() const {
    float sum = 0.0f;
    for (unsigned i = 0; i < _size; ++i)
        sum += _data[i];
    return sum == 0.0f ? 0.0f : sum / float(_size);
}

float Fvec::variance() const {
    float sum = 0.0f, sumSquares = 0.0f;
    for (unsigned i = 0; i < _size; ++i) {
        sum += _data[i];
        float sq = _data[i] * _data[i];
        sumSquares += sq;
    }
    float mean = sum == 0.0f ? 0.0f : sum / float(_size);
    float meanSquare = sumSquares == 0.0f ? 0.0f : sumSquares / float(_size);
    float meanSquared = mean * mean;
    return meanSquare - meanSquared;
}

float Fvec::stdDev() const {
    return std::sqrt(variance());
}

Fvec Fvec::operator+(const Fvec& right) const {
    Fvec result;
    result.alloc(std::max(_size, right._size));
    if (_size) std::memcpy(result._data, _data, _size * sizeof(float));
    for (unsigned i = 0; i < right._size && i < result._size; ++i)
        result._data[i] += right._data[i];
    return result;
}

Fvec Fvec::operator-(const Fvec& right) const {
    Fvec result;
    result.alloc(std::max(_size, right._size));
    if (_size) std::memcpy(result._data, _data, _size * sizeof(float));
    for (unsigned i = 0; i < right._size && i < result._size; ++i)
        result._data[i] -= right._data[i];
    return result;
}
