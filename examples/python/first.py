import plc_client

with plc_client.Simulator("examples/tags") as machine:
    machine.set("Motor.Speed", 120)
    with plc_client.Controller(machine.address, port=machine.port, tags="examples/tags") as press:
        print(press.read("Motor.Speed").value)
