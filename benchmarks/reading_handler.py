#!/usr/bin/python3
"""The reading command as one would write it in an afternoon: paho-mqtt for the bus, redis for the store."""
import json
import sys

import paho.mqtt.client as mqtt
import redis
from paho.mqtt.packettypes import PacketTypes
from paho.mqtt.properties import Properties

KEY = b"device_ttyio_value\0"

bus_port, store_port, topic = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3]
store = redis.Redis("127.0.0.1", store_port)


def on_connect(client, userdata, flags, reason, properties):
    client.subscribe(topic)


def on_message(client, userdata, message):
    try:
        request = json.loads(message.payload)
        stored = store.hget("kvdb", KEY)
        body = json.loads(stored.rstrip(b"\0"))
        reply = {"state": 200, "error_msg": "All done", "type": request.get("type"), "body": body}
    except (ValueError, AttributeError) as error:
        reply = {"state": 404, "error_msg": str(error)}
    properties = Properties(PacketTypes.PUBLISH)
    properties.CorrelationData = message.properties.CorrelationData
    client.publish(message.properties.ResponseTopic, json.dumps(reply, indent=3), properties=properties)


client = mqtt.Client(protocol=mqtt.MQTTv5)
client.on_connect = on_connect
client.on_message = on_message
client.connect("127.0.0.1", bus_port)
client.loop_forever()
