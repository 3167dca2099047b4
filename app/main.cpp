#include "app/dispatcher.h"

int main(int argc, char **argv)
{
    return Dispatch(argc, argv);
}
