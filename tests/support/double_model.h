#pragma once

#include "model/params.h"
#include "network/mknn.h"
#include "support/plain_network.h"

// Models and matrices of the library made by hand, for the tests of its hidden kernels.

inline VEMKN::DoubleModel model_of(const std::string& text)
{
    return VEMKN::mknn<VEMKN::DoubleModel>(VEMKN::DescriptionText(text));
}

inline VEMKN::DoubleModel model_of(const plain::Network& network,
                                   const Numbers& w,
                                   int batch = 8,
                                   unsigned threads = 1)
{
    VEMKN::DoubleModel net = model_of(network.text());
    VEMKN::setweights(net, std::valarray<double>(w.data(), w.size()));
    net.batch = batch;
    net.threads = threads;
    return net;
}

inline VEMKN::MatrixTemplate<double> matrix_of(const Numbers& elements,
                                               std::size_t rows,
                                               std::size_t cols)
{
    return VEMKN::MatrixTemplate<double>(elements.data(), rows, cols);
}

inline Numbers flat(const VEMKN::DoubleModel& net)
{
    const std::valarray<double> w = VEMKN::getweights(net);
    return Numbers(std::begin(w), std::end(w));
}
