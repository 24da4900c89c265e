#include <omp.h>

#include <memory>

#include "api/handle.h"
#include "fad/tangent_counts.h"
#include "model/blas.h"
#include "model/params.h"
#include "network/mknn.h"
#include "runtime/call_frame.h"

int vemkn_rowmajor = 0;

using namespace VEMKN;

::VEMKNInfo* initVEMKNet(const char* text, int length)
{
    // A negative length becomes a size that no string can have, and throws.
    const DescriptionText description(std::string(text, static_cast<std::size_t>(length)));
    auto net = std::make_unique<VEMKN::VEMKNInfo>();
    yafad::reset_tangent_count();
    net->model = mknn<DoubleModel>(description);
    net->functions = function_rows(net->model.activation_name, net->model.norm_name);
    net->numel = numel(net->model);
    net->enters = multiplies_by_blas(net->model) ? Enters::blas : Enters::nothing;
    net->derivative_model = mknn<CarrierModel>(description, std::uint64_t{1});
    vemk_setpar(net.get(), static_cast<unsigned>(omp_get_num_threads()), 32);
    return net.release();
}

void releaseVEMKNet(::VEMKNInfo* net)
{
    delete net;
}

int vemk_setpar(::VEMKNInfo* net, unsigned threads, int batch)
{
    if (net == nullptr || threads < 1 || threads > 99999) return -1;
    net->model.threads = net->derivative_model.threads = threads;
    vemk_setbatch(net, batch);
    return 0;
}

int vemk_setbatch(::VEMKNInfo* net, int batch)
{
    if (net == nullptr || batch < 1) return -1;
    net->model.batch = net->derivative_model.batch = batch;
    return 0;
}

int vemk_quiet(::VEMKNInfo* net, int on)
{
    if (net == nullptr) return -1;
    net->quiet = on != 0;
    return 0;
}

int vemk_major(::VEMKNInfo*, int rowmajor)
{
    vemkn_rowmajor = rowmajor;
    return 0;
}

void vemk_nobanner(void)
{
    VEMKN::count_banner_as_printed();
}

const char* vemk_version(void)
{
    return VEMKN_VERSION;
}
