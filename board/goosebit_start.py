"""goosebit_start.py PORT: starts gooseBit with https on the loopback address and makes its database
and the user 'maker'. Its own start listens on all addresses."""

import asyncio
import os
import sys

import uvicorn
from goosebit import app
from goosebit.db.config import TORTOISE_CONF
from goosebit.settings import PWD_CXT
from goosebit.users import create_initial_user
from tortoise import Tortoise


async def prepare():
    await Tortoise.init(config=TORTOISE_CONF)
    await Tortoise.generate_schemas()
    await create_initial_user("maker", PWD_CXT.hash(os.environ.pop("FLEET_PASSWORD")))
    await Tortoise.close_connections()


asyncio.run(prepare())
uvicorn.run(
    app,
    host="127.0.0.1",
    port=int(sys.argv[1]),
    ssl_keyfile="server.key",
    ssl_certfile="server.crt",
    log_level="warning",
)
