// The node's hold on its board: registers and the interrupt line.
#include "sim/board/board.h"
#include "sim/node/node.h"

namespace sim {

void Node::makeBoard()
{
    BoardConfig board = config_.board;
    board.type = config_.boardType;
    board.name = config_.name;
    board.seed = world_.seed();
    board_ = std::make_unique<Board>(world_, board);
    board_->irq = [this] { boardInterrupt(); };
}

u32  Node::mmioRead(u32 address) { return board_->read(address); }
void Node::mmioWrite(u32 address, u32 value)
{
    drives(Drive::Register, address, value);
    board_->write(address, value);
}
void Node::ioBarrier() {}

int Node::adiEnableExtInt(u32 vector)
{
    drives(Drive::InterruptOn, vector);
    if (interruptResult != 0) return interruptResult;
    enabledVectors_.insert(vector);
    // The line is level sensitive: what waits behind the disabled vector comes through now, unless it was
    // served meanwhile.
    if (board_->interruptPending())
        after(0, [this] {
            if (board_->interruptPending()) boardInterrupt();
        });
    return 0;
}

int Node::adiDisableExtInt(u32 vector)
{
    drives(Drive::InterruptOff, vector);
    if (interruptResult != 0) return interruptResult;
    enabledVectors_.erase(vector);
    return 0;
}

void Node::boardInterrupt()
{
    const u32 vector = board_->vector();
    if (enabledVectors_.contains(vector)) system_->raise(vector);
}

}  // namespace sim
