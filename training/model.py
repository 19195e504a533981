"""Networks: multi-branch blocks for training, one 3x3 convolution each for export.

Every block is a sum of linear branches, so after training it collapses into a
single 3x3 convolution with bias; the shipped network is a plain stack of
those, PReLUs, a depth-to-space and a global residual: the input added to all
four sub-pixel channels, i.e. its nearest-neighbour enlargement. A bilinear
residual would mix in the pixel beyond the frame's edge, which in the plug-in
is whatever fills the rest of its fixed-size input tensor.
"""
import torch
import torch.nn as nn
import torch.nn.functional as F

# Network shapes: feature channels and the number of CxC body blocks, sized by
# the library's integer engine on a 2-core machine (models/README.md): full
# keeps ProcessData at 1280x720 within 20 ms at 265 GMAC/s, light within 40%
# of the full network's time.
CONFIGS = {
    "full": {"channels": 20, "body": 4},
    "light": {"channels": 12, "body": 3},
}

_SOBEL_X = [[1.0, 0.0, -1.0], [2.0, 0.0, -2.0], [1.0, 0.0, -1.0]]
_SOBEL_Y = [[1.0, 2.0, 1.0], [0.0, 0.0, 0.0], [-1.0, -2.0, -1.0]]
_LAPLACIAN = [[0.0, 1.0, 0.0], [1.0, -4.0, 1.0], [0.0, 1.0, 0.0]]


def _pad_with_bias(y, bias):
    """Pads by one pixel with each channel's bias, which is what the 1x1 stage
    would have produced on the zero padding, so the collapse is exact at edges."""
    y = F.pad(y, (1, 1, 1, 1))
    b = bias.view(1, -1, 1, 1)
    y[:, :, 0:1, :] = b
    y[:, :, -1:, :] = b
    y[:, :, :, 0:1] = b
    y[:, :, :, -1:] = b
    return y


class RepBlock(nn.Module):
    """3x3 conv + (1x1 expand, 3x3) + 1x1 then Sobel x / Sobel y / Laplacian
    with learned per-channel scales + identity when the shapes allow."""

    def __init__(self, cin, cout, expand=2):
        super().__init__()
        self.cin, self.cout = cin, cout
        self.conv3 = nn.Conv2d(cin, cout, 3, padding=1)
        mid = expand * cout
        self.exp1 = nn.Conv2d(cin, mid, 1)
        self.exp3 = nn.Conv2d(mid, cout, 3)
        self.edge1 = nn.ModuleList(nn.Conv2d(cin, cout, 1) for _ in range(3))
        self.edge_scale = nn.Parameter(torch.randn(3, cout, 1, 1) * 1e-3)
        self.edge_bias = nn.Parameter(torch.zeros(3, cout))
        masks = torch.tensor([_SOBEL_X, _SOBEL_Y, _LAPLACIAN])
        self.register_buffer("masks", masks)
        self.identity = cin == cout
        if self.identity:
            eye = torch.zeros(cout, cin, 3, 3)
            eye[range(cout), range(cin), 1, 1] = 1.0
            self.register_buffer("eye", eye, persistent=False)

    def _edge_kernel(self, i):
        # Depthwise [cout, 1, 3, 3] kernel of edge branch i.
        return self.edge_scale[i].view(-1, 1, 1, 1) * self.masks[i].view(1, 1, 3, 3)

    def branches(self, x):
        """The block as its sum of branches; forward() computes the same."""
        y = self.conv3(x)
        y = y + self.exp3(_pad_with_bias(self.exp1(x), self.exp1.bias))
        for i, conv in enumerate(self.edge1):
            t = _pad_with_bias(conv(x), conv.bias)
            y = y + F.conv2d(t, self._edge_kernel(i), self.edge_bias[i], groups=self.cout)
        if self.identity:
            y = y + x
        return y

    def forward(self, x):
        # One convolution with the collapsed kernel: the same function and, by
        # the chain rule through kernel(), the same gradients as the branches,
        # at a fraction of the cost.
        k, b = self.kernel()
        return F.conv2d(x, k, b, padding=1)

    def kernel(self):
        """(kernel [cout, cin, 3, 3], bias [cout]) of the equivalent conv,
        differentiable in the branches' parameters."""
        k = self.conv3.weight
        b = self.conv3.bias
        # 1x1 then 3x3: compose the kernels; the 1x1 bias goes through the 3x3.
        w1 = self.exp1.weight[:, :, 0, 0]  # [mid, cin]
        k = k + torch.einsum("omhw,mi->oihw", self.exp3.weight, w1)
        b = b + self.exp3.bias + torch.einsum("omhw,m->o", self.exp3.weight, self.exp1.bias)
        for i, conv in enumerate(self.edge1):
            dw = self._edge_kernel(i)[:, 0]  # [cout, 3, 3]
            k = k + dw[:, None] * conv.weight[:, :, 0, 0][:, :, None, None]
            b = b + self.edge_bias[i] + dw.sum(dim=(1, 2)) * conv.bias
        if self.identity:
            k = k + self.eye
        return k, b

    @torch.no_grad()
    def collapse(self):
        k, b = self.kernel()
        return k.clone(), b.clone()

    @torch.no_grad()
    def start_from(self, k, b):
        """Makes the block compute the 3x3 convolution (k, b) exactly, with
        every branch still trainable: the 3x3 branch holds (k, b) less the
        identity; the expansion's 3x3 and the edge scales start at zero (so
        their branches add nothing) while the 1x1 stages before them keep
        their random start (so the gradients reaching them are not zero)."""
        self.conv3.weight.copy_(k - self.eye if self.identity else k)
        self.conv3.bias.copy_(b)
        self.exp3.weight.zero_()
        self.exp3.bias.zero_()
        self.edge_scale.zero_()
        self.edge_bias.zero_()


class SRNet(nn.Module):
    """Trains on luma scaled to 0..1; export folds the 255 scale in."""

    def __init__(self, channels, body):
        super().__init__()
        self.head = RepBlock(1, channels)
        self.body = nn.ModuleList(RepBlock(channels, channels) for _ in range(body))
        self.tail = RepBlock(channels, 4)
        self.acts = nn.ModuleList(nn.PReLU(channels) for _ in range(body + 1))

    def blocks(self):
        return [self.head, *self.body, self.tail]

    @torch.no_grad()
    def start_from(self, layers):
        """Continues training from collapsed layers [(kernel, bias, slope or
        None)] in the training scale (export.read_layers of a shipped file)."""
        blocks = self.blocks()
        if len(layers) != len(blocks):
            raise ValueError(f"{len(layers)} layers for a network of {len(blocks)} blocks")
        for i, (block, (k, b, slope)) in enumerate(zip(blocks, layers)):
            if tuple(k.shape) != tuple(block.conv3.weight.shape):
                raise ValueError(f"layer {i}: kernel {tuple(k.shape)}, the network has "
                                 f"{tuple(block.conv3.weight.shape)}")
            block.start_from(k, b)
            if slope is not None:
                self.acts[i].weight.copy_(slope.reshape(-1))

    def forward(self, x, branches=False):
        """branches=True runs each block as its sum of branches (slow; for
        checking the collapse)."""
        run = RepBlock.branches if branches else RepBlock.__call__
        y = self.acts[0](run(self.head, x))
        for block, act in zip(self.body, self.acts[1:]):
            y = act(run(block, y))
        return F.pixel_shuffle(run(self.tail, y) + x, 2)


def shape(name, channels=None, body=None):
    c = dict(CONFIGS[name])
    if channels:
        c["channels"] = channels
    if body:
        c["body"] = body
    return c


def build(name, channels=None, body=None):
    return SRNet(**shape(name, channels, body))


def macs_per_input_pixel(name, channels=None, body=None):
    """Multiply-accumulates per input pixel of the exported network: the
    convolutions, PReLU (one multiply) and the residual add (4)."""
    s = shape(name, channels, body)
    c, n = s["channels"], s["body"]
    conv = 9 * (1 * c + n * c * c + c * 4)
    return conv + (n + 1) * c + 4


def parameters_exported(name, channels=None, body=None):
    s = shape(name, channels, body)
    c, n = s["channels"], s["body"]
    conv = 9 * (c + n * c * c + 4 * c) + (c + n * c + 4)
    return conv + (n + 1) * c
